// libFuzzer target: the settings-file parser and writer (XmlTree::Get, XmlTree::Put) over a file's bytes.
#include <cstddef>
#include <cstdint>

#include "fuzz/ParserChecks.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    vxfuzz::CheckXml(data, size);
    return 0;
}
