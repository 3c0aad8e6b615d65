// libFuzzer target: the weekly schedule (Schedule::Parse, GetSecondsRemaining) over a file's bytes.
#include <cstddef>
#include <cstdint>

#include "fuzz/ParserChecks.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    vxfuzz::CheckSchedule(data, size);
    return 0;
}
