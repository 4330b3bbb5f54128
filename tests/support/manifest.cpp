// SPDX-License-Identifier: Apache-2.0
#include "support/manifest.hpp"

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace test
{
namespace
{

using nlohmann::json;

Export parse(const json &j)
{
    Export e{j.at("ordinal"),
             j.at("name"),
             j.at("family"),
             j.at("operation"),
             j.at("group"),
             j.at("element"),
             j.at("description"),
             j.at("returns"),
             {},
             {},
             {},
             j.at("statuses")};
    for (const json &o : j.at("operands"))
        e.operands.push_back(
            {o.at("name"), o.at("kind"), o.at("array"), o.at("transposed"), o.at("output")});
    for (const json &a : j.at("arguments")) // width, height, len and order are all sizes here
        e.arguments.push_back({a.at("name"), a.at("type"),
                               a.contains("sizes") ? json("size") : a.at("role"), a.at("operand")});
    for (const json &c : j.at("checks"))
        e.checks.push_back({c.at("step"), c.at("status"), c.at("arguments")});
    return e;
}

template <class List> auto *find(const List &list, std::string_view name)
{
    const auto it = std::ranges::find(list, name, &List::value_type::name);
    return it == list.end() ? nullptr : &*it;
}

} // namespace

const ArgumentInfo *Export::argument(std::string_view n) const { return find(arguments, n); }
const OperandInfo *Export::operand(std::string_view n) const { return find(operands, n); }

const std::vector<Export> &allExports()
{
    static const std::vector<Export> exports = [] {
        std::ifstream file(ZONM_SOURCE_DIR "/zonm.json");
        std::vector<Export> list;
        const json grammar = json::parse(file);
        for (const json &e : grammar.at("exports"))
            list.push_back(parse(e));
        return list;
    }();
    return exports;
}

std::vector<const Export *> exportsOf(std::string_view family)
{
    std::vector<const Export *> list;
    for (const Export &e : allExports())
        if (e.family == family)
            list.push_back(&e);
    if (list.empty())
        throw std::invalid_argument("no export in family " + std::string(family));
    return list;
}

const Export &exportNamed(std::string_view name)
{
    if (const Export *e = find(allExports(), name))
        return *e;
    throw std::invalid_argument("no such export: " + std::string(name));
}

} // namespace test
