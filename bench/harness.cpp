// SPDX-License-Identifier: Apache-2.0
#include "harness.hpp"
#include "peers.hpp"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <random>

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#endif

namespace bench
{
namespace
{

std::vector<void (*)()> &groups()
{
    static std::vector<void (*)()> all;
    return all;
}

// A peer that leaves the upper halves of the vector registers in use makes later SSE code slower.
#if defined(__x86_64__) || defined(__i386__)
__attribute__((target("avx"))) void zeroUpper() { _mm256_zeroupper(); }
void clearUpperHalves()
{
    if (__builtin_cpu_supports("avx"))
        zeroUpper();
}
#else
void clearUpperHalves() {}
#endif

[[noreturn]] void fail(const std::string &name, const char *what, double value)
{
    std::fprintf(stderr, "%s: %s %g\n", name.c_str(), what, value);
    std::exit(1);
}

} // namespace

Group::Group(void (*rows)()) { groups().push_back(rows); }

void *allocate(std::size_t bytes)
{
    static std::vector<std::unique_ptr<void, decltype(&std::free)>> owned;
    // Runs that begin at different offsets of a page do not alias in the store buffers.
    const std::size_t page = 4096, offset = 64 * (owned.size() * 37 % 64);
    const std::size_t whole = (bytes + offset + page - 1) / page * page;
    void *memory = std::aligned_alloc(page, whole);
    if (!memory)
        fail("allocate", "no memory for bytes:", double(bytes));
    owned.emplace_back(memory, &std::free);
    return std::memset(static_cast<std::byte *>(memory) + offset, 0, bytes);
}

template <class T> T *random(std::size_t n)
{
    static std::mt19937 generator(20240229);
    T *values = allocate<T>(n);
    for (std::size_t i = 0; i < n; ++i)
        values[i] = T(std::int32_t(generator())) / T(2147483648.0);
    return values;
}
template float *random<float>(std::size_t);
template double *random<double>(std::size_t);

void Row::enter(const std::string &contestant, std::function<void()> finish,
                std::function<std::int32_t()> pass)
{
    const std::string name = name_ + contestant;
    auto verify = [name, finish, pass, outputs = outputs_, error = error_] {
        for (const Output &o : outputs)
            std::memset(o.data, 0xFF, o.bytes);
        if (const std::int32_t status = pass())
            fail(name, "returned status", status);
        finish();
        if (const double e = error(); !(e <= 1))
            fail(name, "is wrong; its error in units of the permitted one:", e);
    };
    benchmark::RegisterBenchmark(name.c_str(), [verify, pass, objects = objects_,
                                                verified = false](benchmark::State &state) mutable {
        if (!verified)
            verify();
        verified = true;
        benchmark::DoNotOptimize(pass()); // brings the data near
        clearUpperHalves();
        for (auto _ : state) {
            benchmark::DoNotOptimize(pass());
            benchmark::ClobberMemory();
        }
        state.counters["objects"] = objects;
    });
}

} // namespace bench

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::AddCustomContext("compiler", BENCH_COMPILER);
    benchmark::AddCustomContext("flags", BENCH_FLAGS);
    bench::introducePeers([](const char *name, const std::string &value) {
        benchmark::AddCustomContext(name, value);
    });
    for (auto rows : bench::groups())
        rows();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}
