// What a login encrypts: a password of four blocks.
#include <benchmark/benchmark.h>

#include "lenswire/cipher.h"

namespace {

void des_encode(benchmark::State& state) {
    const uint8_t key[8] = {'k', 'e', 'y', 'o', 'f', ' ', 'i', 't'};
    uint8_t password[32] = "12345";
    for (auto _ : state) {
        PP_DES_Encode(password, password, key, sizeof password);
        benchmark::DoNotOptimize(password);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * sizeof password));
}
BENCHMARK(des_encode)->Name("des_encode_password");

}  // namespace
