// libFuzzer entry point; VR_FUZZ_TARGET names the function of FuzzTargets.h.
#include "FuzzTargets.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    Veloran::Fuzz::silenceLogs();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Veloran::Fuzz::VR_FUZZ_TARGET(data, size);
    return 0;
}
