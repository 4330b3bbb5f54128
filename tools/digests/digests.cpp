// SPDX-License-Identifier: Apache-2.0
// zonm_digests: calls every export of the library on numbers that are the same everywhere, and
// prints one number per family over all results and statuses. Builds that agree in them agree to
// the last bit in what was called here. The numbers of this version stand in expected.inc.
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <type_traits>
#include <utility>

#include "zonm.h"

namespace
{

// What a call is made with: the same sizes for all operands, so that most families find them fit.
struct Setting {
    int width, height, count;
    bool gaps; // strides beyond what the elements take, shifts, tables in reverse
    enum { uniform, definite, wide } numbers;
};

constexpr int largest = 7, mostObjects = 5, room = 600;

class Digest
{
  public:
    void add(double value)
    {
        // The payload of a NaN is nobody's promise.
        add(std::isnan(value) ? 0x7ff8000000000000u : std::bit_cast<std::uint64_t>(value));
    }
    void add(std::uint64_t bits) { sum = std::rotl((sum ^ bits) * 0x9e3779b97f4a7c15u, 29); }
    std::uint64_t value() const { return sum; }

  private:
    std::uint64_t sum = 0xcbf29ce484222325u;
};

std::uint64_t hashed(std::uint64_t z) // splitmix64
{
    z += 0x9e3779b97f4a7c15u;
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
    return z ^ (z >> 31);
}

double unit(std::uint64_t key)
{
    return double(std::int64_t(hashed(key)) >> 11) * 0x1p-52;
} // -1 .. 1

// Memory ---------------------------------------------------------------------------------------

// Objects lie in rows of `side` elements, whatever their orientation.
template <class T> struct Steps {
    int element, row, object; // in elements
    explicit Steps(const Setting &s)
        : element(s.gaps ? 2 : 1), row(element * side(s) + (s.gaps ? 1 : 0)),
          object(row * side(s) + (s.gaps ? 3 : 0))
    {
    }
    static int side(const Setting &s) { return s.width > s.height ? s.width : s.height; }
};

// The elements behind one pointer argument, and its table if it is one.
template <class T> struct Operand {
    T elements[room];
    T *table[largest * largest];

    void fill(const Setting &s, std::uint64_t key)
    {
        for (int e = 0; e < room; ++e)
            elements[e] = T(number(s, key, e));
        if (s.numbers != Setting::definite)
            return;
        const Steps<T> steps(s);
        const int n = Steps<T>::side(s);
        for (int k = 0; k < s.count; ++k)
            for (int i = 0; i < n; ++i)
                for (int j = 0; j <= i; ++j) {
                    T *object = elements + k * steps.object;
                    const T x = object[j * steps.row + i * steps.element];
                    object[i * steps.row + j * steps.element] = i == j ? T(x * T(0.5) + T(n)) : x;
                }
    }
    static double number(const Setting &s, std::uint64_t key, int e)
    {
        const double u = unit(key + std::uint64_t(e));
        if (s.numbers != Setting::wide)
            return u;
        const std::uint64_t choice = hashed(~key - std::uint64_t(e));
        const int reach = sizeof(T) == 4 ? 140 : 1060;
        return choice % 16 == 0 ? std::copysign(0.0, u)
                                : std::ldexp(u, int(choice % std::uint64_t(2 * reach)) - reach);
    }
};

// Every table has as many entries as the largest operand of the call needs.
template <class T> void tabulate(Operand<T> &o, const Setting &s, bool ofElements)
{
    const Steps<T> steps(s);
    const int side = Steps<T>::side(s), entries = ofElements ? side * side : s.count;
    for (int e = 0; e < entries; ++e) {
        const int element = s.width == s.height ? e / side * steps.row + e % side * steps.element
                                                : e * steps.element;
        o.table[e] = o.elements + (ofElements ? element
                                   : s.gaps   ? (entries - 1 - e) * steps.object
                                              : e * steps.object);
    }
}

// A call ---------------------------------------------------------------------------------------

constexpr int mostPointers = 32; // one for each argument
Operand<float> floats[mostPointers];
Operand<double> doubles[mostPointers];
std::int32_t integers[mostPointers][room];
alignas(16) std::byte scratch[1 << 16];

// What a parameter is by its type.
enum class Kind { integer, floatValue, doubleValue, floats, doubles, rows, bytes };
struct Parameter {
    Kind kind;
    bool output;
};

template <class P> constexpr Parameter parameter()
{
    using Pointee = std::remove_pointer_t<P>;
    using Element = std::remove_pointer_t<Pointee>; // of a table, or the pointee itself
    using T = std::remove_const_t<Element>;
    constexpr bool output = std::is_pointer_v<P> && !std::is_const_v<Element>;
    if constexpr (!std::is_pointer_v<P>)
        return {std::is_same_v<P, float>    ? Kind::floatValue
                : std::is_same_v<P, double> ? Kind::doubleValue
                                            : Kind::integer,
                false};
    else
        return {std::is_same_v<T, float>          ? Kind::floats
                : std::is_same_v<T, double>       ? Kind::doubles
                : std::is_same_v<T, std::int32_t> ? Kind::rows
                                                  : Kind::bytes,
                output};
}

struct Argument {
    void *pointer;
    double number;
    std::int32_t integer;

    template <class P> P as() const
    {
        if constexpr (std::is_pointer_v<P>)
            return static_cast<P>(pointer);
        else if constexpr (std::is_floating_point_v<P>)
            return P(number);
        else
            return integer;
    }
};

using Address = void (*)();

// An export: its prototype, and the roles of its arguments in their order: p pointer, l and e
// tables of objects and of elements, 0 1 2 strides, s shift, w width, h height or length, n order,
// c count, v value, b buffer.
struct Export {
    const char *name, *roles;
    Address address;
    const Parameter *parameters;
    ZonStatus (*call)(Address, const Argument *);
};

template <class... P> constexpr Parameter parametersOf[] = {parameter<P>()...};

template <class... P>
Export exported(const char *name, const char *roles, ZonStatus (*function)(P...))
{
    return {name, roles, reinterpret_cast<Address>(function), parametersOf<P...>,
            [](Address address, const Argument *arguments) {
                return [&]<std::size_t... I>(std::index_sequence<I...>)
                {
                    return reinterpret_cast<ZonStatus (*)(P...)>(address)(
                        arguments[I].template as<P>()...);
                }
                (std::index_sequence_for<P...>());
            }};
}

std::int32_t integerFor(char role, const Setting &s, int elementBytes)
{
    const Steps<float> steps(s); // the same for both types
    switch (role) {
    case '0': return steps.object * elementBytes;
    case '1': return steps.row * elementBytes;
    case '2': return steps.element * elementBytes;
    case 's': return 0;
    case 'w': return s.width;
    case 'c': return s.count;
    default: return s.height;
    }
}

template <class T>
void *addressFor(char role, const Setting &s, Operand<T> &operand, std::uint64_t key)
{
    operand.fill(s, key);
    if (role == 'p')
        return operand.elements;
    tabulate(operand, s, role == 'e');
    return operand.table;
}

// One call, with all that its outputs are part of: what must stay as it was counts too.
void take(Digest &digest, const Export &e, const Setting &s)
{
    std::uint64_t key = 0;
    for (const char *c = e.name; *c; ++c)
        key = hashed(key + std::uint64_t(static_cast<unsigned char>(*c)));
    const int arity = int(std::strlen(e.roles)), bytes = std::strstr(e.name, "64f") ? 8 : 4;
    Argument arguments[32] = {};
    for (int n = 0, values = 0; n < arity; ++n) {
        Argument &a = arguments[n];
        const std::uint64_t own = key + 4096u * std::uint64_t(n);
        switch (e.parameters[n].kind) {
        case Kind::integer: a.integer = integerFor(e.roles[n], s, bytes); break;
        case Kind::floatValue:
        case Kind::doubleValue: a.number = 0.375 + 0.5 * values++; break;
        case Kind::floats: a.pointer = addressFor(e.roles[n], s, floats[n], own); break;
        case Kind::doubles: a.pointer = addressFor(e.roles[n], s, doubles[n], own); break;
        case Kind::rows:
            for (int i = 0; i < room; ++i)
                integers[n][i] = s.height - 1 - i % s.height;
            a.pointer = integers[n];
            break;
        case Kind::bytes: a.pointer = scratch; break;
        }
    }
    digest.add(double(e.call(e.address, arguments)));
    const auto addAll = [&](const auto &elements) {
        for (const auto x : elements)
            digest.add(double(x));
    };
    for (int n = 0; n < arity; ++n) {
        if (!e.parameters[n].output)
            continue;
        switch (e.parameters[n].kind) {
        case Kind::floats: addAll(floats[n].elements); break;
        case Kind::doubles: addAll(doubles[n].elements); break;
        case Kind::rows: addAll(integers[n]); break;
        default: break;
        }
    }
}

void takeAll(Digest &digest, const Export &e)
{
    const bool isArray = std::strchr(e.roles, 'c'), isSized = std::strpbrk(e.roles, "whn"),
               isSquare = std::strchr(e.roles, 'n');
    for (int n = 1; n <= largest; ++n)
        for (const int width : {n, n - 1, n + 1}) {
            // Of objects that have their size by nature none has more than 4 x 4 elements.
            const bool square = width == n;
            if (width < 1 || width > largest || (!square && (isSquare || !isSized || n % 2 == 0)) ||
                (!isSized && n < 4))
                continue;
            for (const int count : {1, mostObjects})
                for (const bool gaps : {false, true})
                    for (const auto numbers : {Setting::uniform, Setting::definite, Setting::wide})
                        if (isArray || count == 1)
                            take(digest, e, {width, n, count, gaps, numbers});
        }
}

// The families ---------------------------------------------------------------------------------

// These call the platform's sin and cos.
const char *const rounded = "sin and cos";

std::map<std::string, Digest> digests()
{
    std::map<std::string, Digest> found;
#define ZONM_EXPORT(name, family, roles) takeAll(found[family], exported(#name, roles, name));
#include "generated/exports.inc"
#undef ZONM_EXPORT
    return found;
}

const std::map<std::string, std::uint64_t> expected = {
#include "expected.inc"
};

} // namespace

int main(int count, char **arguments)
{
    const bool table = count == 2 && std::strcmp(arguments[1], "--table") == 0;
    if (count > 1 && !table) {
        std::printf(
            "usage: zonm_digests [--table]\n\n"
            "Calls every export of zonm and prints one number per family over all results,\n"
            "and whether it is the one that every build of this version has. Exit code 1 if\n"
            "one is not. --table prints the numbers alone, as the sources of zonm have them.\n");
        return std::strcmp(arguments[1], "--help") != 0 ? 2 : 0;
    }
    int equal = 0, different = 0;
    for (const auto &[family, digest] : digests()) {
        const auto value = static_cast<unsigned long long>(digest.value());
        const auto wanted = expected.find(family);
        const bool same = wanted != expected.end() && wanted->second == value;
        if (table) {
            std::printf("{\"%s\", 0x%016llx},\n", family.c_str(), value);
            continue;
        }
        const bool platforms = family == rounded;
        (same ? equal : different) += !platforms;
        std::printf("%016llx  %-24s%s\n", value, family.c_str(),
                    same        ? "ours"
                    : platforms ? "this platform's"
                                : "NOT OURS");
    }
    if (!table)
        std::printf("zonm %s: %d of %d families give our bits\n", zonmGetLibVersion()->versionText,
                    equal, equal + different);
    return different != 0;
}
