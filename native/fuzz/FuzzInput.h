// Settings texts as they reach the parsers, rebuilt from the raw bytes of a file (or of a
// fuzzer's input, which stands for one).
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace vxfuzz {

// A wide text in a heap block of exactly its own size, so that AddressSanitizer reports a read
// of even one character past it.
struct WideText {
    std::unique_ptr<wchar_t[]> p;
    size_t n = 0; // characters in the block, a terminating zero (where there is one) included
};

// What the settings-file loader makes of a file (XmlTree::LoadFile): UTF-16 little- or
// big-endian by its mark or, without one, by a zero byte in the first character; anything else is
// UTF-8, with or without its mark. Marks are dropped and an odd last byte is not a character.
// UTF-16 code units are widened one by one, as Windows' 16-bit wchar_t holds them (surrogates
// stay two units). UTF-8 is decoded to code points, so characters above U+FFFF arrive as one
// 32-bit wchar_t: values that a Windows build never sees, which the parsers must take as well.
// Malformed UTF-8 becomes U+FFFD, as the system's converter makes it. Always terminated.
WideText DecodeFileText(const uint8_t* data, size_t size);

// What the INI reader gets from a file (IniFile::ReadData): every two bytes one UTF-16
// little-endian code unit, a byte-order mark included, an odd last byte dropped. Not terminated:
// the reader is given the length.
WideText Utf16LeUnits(const uint8_t* data, size_t size);

// A terminated copy of the first n characters of text.
WideText Terminated(const wchar_t* text, size_t n);

// FNV-1a over the bytes: a repeatable source of choices (moments, refusal points) per input.
uint64_t HashBytes(const uint8_t* data, size_t size);

} // namespace vxfuzz
