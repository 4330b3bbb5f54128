// SPDX-License-Identifier: Apache-2.0
#include "support/invoke.hpp"

#include <stdexcept>
#include <string>
#include <unordered_map>
#include <utility>

namespace test
{
namespace
{

using Address = void (*)();

// One caller for each type of prototype.
struct Callee {
    Address address;
    ZonStatus (*call)(Address, std::span<const Argument>);
};

template <class... P> Callee callee(ZonStatus (*function)(P...))
{
    return {reinterpret_cast<Address>(function),
            [](Address address, std::span<const Argument> arguments) {
                if (arguments.size() != sizeof...(P))
                    throw std::invalid_argument("wrong number of arguments");
                return [&]<std::size_t... I>(std::index_sequence<I...>)
                {
                    return reinterpret_cast<ZonStatus (*)(P...)>(address)(arguments[I].as<P>()...);
                }
                (std::index_sequence_for<P...>());
            }};
}

const std::unordered_map<std::string_view, Callee> callees = {
#define ZONM_EXPORT(name) {#name, callee(name)},
#include "generated/exports.inc"
#undef ZONM_EXPORT
};

} // namespace

ZonStatus invoke(std::string_view exportName, std::span<const Argument> arguments)
{
    const auto it = callees.find(exportName);
    if (it == callees.end())
        throw std::invalid_argument("not built: " + std::string(exportName));
    return it->second.call(it->second.address, arguments);
}

} // namespace test
