// The rules every input must keep, one function per parser. Each runs its parser over the bytes
// in every way a file reaches it and aborts with a message at the first broken rule, so that
// libFuzzer keeps the input and the sanitizers' reports and these rules stop a run alike. The
// fuzz targets and the corpus check share them.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vxfuzz {

// Named in failure messages (the corpus check sets the file's path).
void SetInputName(const char* name);

struct IniOutcome {
    int ok;               // ReadAll's answer (the handler accepted every event)
    unsigned nVariables;  // variables reported
};
// The INI reader: the file's code units with their length, the same text up to a terminating
// zero, a handler that refuses part-way, and what IniFile::WriteSec/WriteVar make of the
// variables read back.
IniOutcome CheckIni(const uint8_t* data, size_t size);

// The settings-file parser (silent, as the import parses): the decoded file, the error it
// records, and the tree rendered back, which must parse again into the same tree and render the
// same text. Returns 1 when the document parsed.
int CheckXml(const uint8_t* data, size_t size);

// The weekly schedule: Parse and GetSecondsRemaining / IsScheduleOn at moments taken from the
// input and from the edges of its periods. Returns 1 when the text parsed.
int CheckSchedule(const uint8_t* data, size_t size);

} // namespace vxfuzz
