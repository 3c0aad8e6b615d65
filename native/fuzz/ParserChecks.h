// What the fuzz targets and the corpus check share: inputs rebuilt as a file delivers them, and
// the rules each parser must keep (each aborts with a message at the first broken rule).
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace vxfuzz {

// A heap block of exactly its own size, so that AddressSanitizer reports a read one past it.
struct WideText {
    std::unique_ptr<wchar_t[]> p;
    size_t n = 0; // characters, a terminating zero (where there is one) included
};
// As the settings-file loader reads a file: UTF-16 either way round (by its mark or a zero byte in
// the first character) or UTF-8, malformed bytes as U+FFFD; marks dropped; terminated.
WideText DecodeFileText(const uint8_t* data, size_t size);
// As the INI reader gets a file: UTF-16 LE code units, the mark included; not terminated.
WideText Utf16LeUnits(const uint8_t* data, size_t size);
WideText Terminated(const wchar_t* text, size_t n);
uint64_t HashBytes(const uint8_t* data, size_t size); // FNV-1a: repeatable choices per input

void SetInputName(const char* name); // named in failure messages
struct IniOutcome {
    int ok; // ReadAll's answer
    unsigned nVariables;
};
// The INI reader by length and by terminator, refused midway, and read back from what it wrote.
IniOutcome CheckIni(const uint8_t* data, size_t size);
// The settings-file parser: its error report, and the tree rendered and parsed back. 1: parsed.
int CheckXml(const uint8_t* data, size_t size);
// The weekly schedule at moments from the input and the periods' edges. 1: parsed.
int CheckSchedule(const uint8_t* data, size_t size);

} // namespace vxfuzz
