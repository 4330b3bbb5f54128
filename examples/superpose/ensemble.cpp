// SPDX-License-Identifier: Apache-2.0
#include "ensemble.hpp"

#include "common/csv.hpp"

#include <algorithm>
#include <map>
#include <stdexcept>

namespace superpose
{

Ensemble readEnsemble(const std::filesystem::path &path)
{
    struct Rows {
        std::vector<Residue> residues;
        Shape atoms;
    };
    std::vector<std::string> order;
    std::map<std::string, Rows> rows;
    common::readCsv(path, {"model", "residue", "name", "x", "y", "z"},
                    [&](const common::Record &record) -> std::string {
                        const auto residue = common::parseNumber(record[1]);
                        if (!residue || *residue != static_cast<int>(*residue))
                            return "'" + record[1] + "' is no residue number";
                        Point atom;
                        for (std::size_t axis = 0; axis < 3; ++axis) {
                            const auto coordinate = common::parseNumber(record[3 + axis]);
                            if (!coordinate)
                                return "'" + record[3 + axis] + "' is no coordinate";
                            atom[axis] = *coordinate;
                        }
                        const auto [model, isNew] = rows.try_emplace(record[0]);
                        if (isNew)
                            order.push_back(record[0]);
                        model->second.residues.push_back({static_cast<int>(*residue), record[2]});
                        model->second.atoms.push_back(atom);
                        return "";
                    });
    if (order.empty())
        throw std::runtime_error(path.string() + ": no models");

    Ensemble ensemble;
    ensemble.residues = rows[order.front()].residues;
    const auto same = [](const Residue &a, const Residue &b) {
        return a.number == b.number && a.name == b.name;
    };
    for (const std::string &name : order) {
        Rows &model = rows[name];
        if (std::equal(model.residues.begin(), model.residues.end(), ensemble.residues.begin(),
                       ensemble.residues.end(), same))
            ensemble.models.push_back({name, std::move(model.atoms)});
        else
            ensemble.passedOver.push_back("model " + name +
                                          ": its residues are not those of model " + order.front());
    }
    return ensemble;
}

} // namespace superpose
