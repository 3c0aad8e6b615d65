// libFuzzer target: the INI reader (IniFile::ReadAll) over a file's bytes.
#include <cstddef>
#include <cstdint>

#include "fuzz/ParserChecks.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    vxfuzz::CheckIni(data, size);
    return 0;
}
