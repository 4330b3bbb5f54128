// SPDX-License-Identifier: Apache-2.0
// The shape of a protein in motion: all models of an ensemble superposed on one reference, with the
// eigenvectors of all their key matrices in one array call.
#include "superposition.hpp"

#include "common/csv.hpp"
#include "common/output.hpp"
#include "common/plot.hpp"
#include "common/program.hpp"

#include <algorithm>
#include <iomanip>
#include <iostream>

namespace
{

constexpr auto about =
    R"(Superposes the models of a molecule and tells how far each is from the reference,
and how much each residue moves about its mean place.)";

constexpr auto notes = R"(Why no model is lost to a "singular" matrix:
  A key matrix of the quaternion method has eigenvalues of both signs, and their
  product may be near zero, which the library reports as singular. The program
  passes on N / scale + 2 I, whose eigenvalues lie between 1 and 3 and whose
  eigenvectors are the same. A model is passed over, by name, only if its atoms
  coincide or its residues are not those of the first model.)";

struct Options {
    std::filesystem::path input;
    std::filesystem::path models = "superpose_models.csv";
    std::filesystem::path residues = "superpose_residues.csv";
    std::filesystem::path picture = "superpose.png";
    bool onMean = false;
};

common::Canvas draw(const superpose::Ensemble &ensemble, const superpose::Superposition &result,
                    const std::vector<double> &fluctuations, const std::string &reference)
{
    common::Curve moved{common::Curve::line, "", common::resultRed, 3, {}, {}};
    for (std::size_t i = 0; i < fluctuations.size(); ++i) {
        moved.x.push_back(ensemble.residues[i].number);
        moved.y.push_back(fluctuations[i]);
    }
    common::Curve distances{common::Curve::points, "", common::measuredBlue, 7, {}, {}};
    for (std::size_t k = 0; k < result.fits.size(); ++k)
        if (result.fits[k]) {
            distances.x.push_back(static_cast<double>(k + 1));
            distances.y.push_back(result.fits[k]->rmsd);
        }
    return common::drawPlot(
        "Superposition on " + reference,
        {{{"residue"}, {"fluctuation (Å)"}, {moved}}, {{"model"}, {"RMSD (Å)"}, {distances}}});
}

void run(const Options &options)
{
    common::requireDistinct({options.input, options.models, options.residues, options.picture});
    const auto ensemble = superpose::readEnsemble(options.input);
    int rounds = 0;
    const auto result =
        options.onMean ? superpose::superposeOnMean(ensemble.models, rounds)
                       : superpose::superposeOn(ensemble.models.front().atoms, ensemble.models);
    const auto fluctuations = superpose::fluctuationsOf(result);

    std::vector<std::string> passedOver = ensemble.passedOver;
    std::string models = "model,rmsd\n", residues = "residue,name,fluctuation\n";
    double sum = 0;
    std::size_t number = 0, farthest = 0;
    for (std::size_t k = 0; k < result.fits.size(); ++k) {
        const auto &name = ensemble.models[k].name;
        if (!result.fits[k]) {
            passedOver.push_back("model " + name + ": the library refused its key matrix");
            continue;
        }
        models += name + ',' + common::shortest(result.fits[k]->rmsd) + '\n';
        if (!options.onMean && k == 0)
            continue; // the reference itself
        sum += result.fits[k]->rmsd;
        if (number++ == 0 || result.fits[k]->rmsd > result.fits[farthest]->rmsd)
            farthest = k;
    }
    for (std::size_t i = 0; i < fluctuations.size(); ++i)
        residues += std::to_string(ensemble.residues[i].number) + ',' + ensemble.residues[i].name +
                    ',' + common::shortest(fluctuations[i]) + '\n';
    const std::string reference =
        options.onMean ? "the mean" : "model " + ensemble.models.front().name;
    const auto picture = draw(ensemble, result, fluctuations, reference);

    common::OutputFile modelsFile(options.models, models, "--out-models");
    common::OutputFile residuesFile(options.residues, residues, "--out-residues");
    common::OutputFile pictureFile(options.picture, picture.png(), "--out-png");
    modelsFile.commit();
    residuesFile.commit();
    pictureFile.commit();

    const auto most = std::max_element(fluctuations.begin(), fluctuations.end());
    const auto &loosest = ensemble.residues[static_cast<std::size_t>(most - fluctuations.begin())];
    std::cout << std::fixed << std::setprecision(3);
    std::cout << "models             " << ensemble.models.size() << " of "
              << ensemble.residues.size() << " residues\n";
    std::cout << "reference          " << reference;
    if (options.onMean)
        std::cout << ", settled after " << rounds << " rounds";
    std::cout << '\n';
    if (number > 0)
        std::cout << "mean RMSD          " << sum / static_cast<double>(number) << " Å over "
                  << number << " models\n"
                  << "largest RMSD       " << result.fits[farthest]->rmsd << " Å, model "
                  << ensemble.models[farthest].name << '\n';
    std::cout << "largest motion     " << *most << " Å, residue " << loosest.number << ' '
              << loosest.name << '\n';
    for (const std::string &fault : passedOver)
        std::cout << "passed over        " << fault << '\n';
    std::cout << "tables             " << options.models.string() << ", "
              << options.residues.string() << "\npicture            " << options.picture.string()
              << '\n';
}

} // namespace

int main(int argc, char **argv)
{
    Options options;
    CLI::App app(about, "superpose");
    app.footer(notes);
    app.add_option("input", options.input, "CSV file: model, residue, name, x, y, z")
        ->required()
        ->type_name("FILE");
    app.add_flag("--mean", options.onMean, "superpose on the mean structure, until it settles");
    app.add_option("--out-models", options.models, "the table of RMSD to write")
        ->capture_default_str()
        ->type_name("FILE");
    app.add_option("--out-residues", options.residues, "the table of fluctuations to write")
        ->capture_default_str()
        ->type_name("FILE");
    app.add_option("--out-png", options.picture, "the picture to draw")
        ->capture_default_str()
        ->type_name("FILE");
    return common::runProgram(app, argc, argv, [&] { run(options); });
}
