// SPDX-License-Identifier: Apache-2.0
// The operands of the benchmarks: arrays of dense objects, and the argument blocks by which zonm
// takes them in each description. A block that begins at object k serves calls on a part.
#pragma once

#include <cstddef>
#include <cstdint>
#include <tuple>
#include <type_traits>

namespace bench
{

// Zeroed memory on a cache line of its own, held until the program ends.
void *allocate(std::size_t bytes);
template <class T> T *allocate(std::size_t n) { return static_cast<T *>(allocate(n * sizeof(T))); }

// Uniform in (-1, 1), the same numbers in every run.
template <class T> T *random(std::size_t n);

// `count` objects of `length` elements, one behind the other, and the tables that point to them.
template <class T> struct Objects {
    T *data;
    int length, count;
    T **objectTable;  // one entry per object
    T **elementTable; // one entry per element of object 0

    Objects(T *memory, int n, int objects)
        : data(memory), length(n), count(objects), objectTable(allocate<T *>(objects)),
          elementTable(allocate<T *>(n))
    {
        for (int k = 0; k < objects; ++k)
            objectTable[k] = object(k);
        for (int e = 0; e < n; ++e)
            elementTable[e] = data + e;
    }
    int step() const { return length * int(sizeof(T)); }
    T *object(int k) const { return data + std::size_t(k) * length; }
    std::size_t size() const { return std::size_t(length) * count; }
};
template <class T> struct Matrices : Objects<T> {
    int columns;

    Matrices(T *memory, int n, int objects) : Matrices(memory, n, n, objects) {}
    Matrices(T *memory, int w, int h, int objects) : Objects<T>(memory, w * h, objects), columns(w)
    {
    }
    auto strides() const { return std::tuple(columns * int(sizeof(T)), int(sizeof(T))); }
};
template <class T> struct Vectors : Objects<T> {
    Vectors(T *memory, int n, int objects) : Objects<T>(memory, n, objects) {}
    auto strides() const { return std::tuple(int(sizeof(T))); }
};

// Operand blocks of a call that begins at object k and takes n objects.
template <class O> auto array(O o)
{
    return
        [=](int k, int) { return std::tuple_cat(std::tuple(o.object(k), o.step()), o.strides()); };
}
template <class O> auto objects(O o)
{
    return
        [=](int k, int) { return std::tuple_cat(std::tuple(o.objectTable + k, 0), o.strides()); };
}
template <class O> auto elements(O o)
{
    return [=](int k, int) { return std::tuple(o.elementTable, k * o.step(), o.step()); };
}
template <class O> auto single(O o)
{
    return [=](int k, int) { return std::tuple_cat(std::tuple(o.object(k)), o.strides()); };
}
template <class O> auto singleElements(O o)
{
    return [=](int k, int) { return std::tuple(o.elementTable, k * o.step()); };
}
// The block of object 0 in every call.
template <class Block> auto fixed(Block block)
{
    return [=](int, int n) { return block(0, n); };
}
inline constexpr auto count = [](int, int n) { return n; };

// Three runs of memory per type, several times the caches, serve all sums and products.
enum Run { first, second, result };
inline constexpr std::size_t runBytes = 72u << 20;

template <class T> T *run(Run which)
{
    static T *const runs[] = {random<T>(runBytes / sizeof(T)), random<T>(runBytes / sizeof(T)),
                              allocate<T>(runBytes / sizeof(T))};
    return runs[which];
}
template <class T> Matrices<T> matrices(Run which, int n, int count)
{
    return {run<T>(which), n, count};
}
template <class T> constexpr int objectsWithin(std::size_t bytes, int n)
{
    return int(bytes / (n * n * sizeof(T)));
}

// zonm by element type -------------------------------------------------------------------------

template <class T, class F, class G> constexpr auto pick(F *of32f, G *of64f)
{
    if constexpr (std::is_same_v<T, float>)
        return of32f;
    else
        return of64f;
}
#define ZONM(name) bench::pick<T>(name##_32f, name##_64f)
#define ZONM_L(name) bench::pick<T>(name##_32f_L, name##_64f_L)
#define ZONM_P(name) bench::pick<T>(name##_32f_P, name##_64f_P)

// A call with its operand blocks and plain arguments in their order, as work on objects k to k + n.
template <class F, class... Arguments> auto callOf(F *function, Arguments... arguments)
{
    return [=](int k, int n) {
        const auto evaluate = [=](const auto &argument) {
            if constexpr (!std::is_invocable_v<decltype(argument), int, int>)
                return std::tuple(argument);
            else if constexpr (std::is_class_v<decltype(argument(k, n))>)
                return argument(k, n);
            else
                return std::tuple(argument(k, n));
        };
        return std::apply(function, std::tuple_cat(evaluate(arguments)...));
    };
}

} // namespace bench
