// fuzzer.cpp - one target as a fuzzer: CPIC_FUZZ_TARGET says which.
#include "fuzz/target.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size)
{
    fuzz::CPIC_FUZZ_TARGET(bytes, size);
    return 0;
}
