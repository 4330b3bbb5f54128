// SPDX-License-Identifier: Apache-2.0
#include "support/grammar.hpp"

#include <algorithm>
#include <iterator>
#include <regex>
#include <sstream>
#include <stdexcept>

namespace test
{
namespace
{

std::vector<std::string> words(const std::string &text)
{
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), {}};
}

// Families -------------------------------------------------------------------------------------

// `list` names the operands and arguments in order: described operands expand into their blocks,
// `count` stands only where an operand is an array. `dst.` is a plain pointer.
struct Family {
    const char *operation, *single, *array, *list;
};

const Family families[] = {
    {"zonmAdd", "mm tm tt", "mam mat tam tat mama tama tata", "src1 src2 dst width height count"},
    {"zonmSub", "mm mt tm tt", "mam mat tam tat mma mta tma tta mama mata tama tata",
     "src1 src2 dst width height count"},
    {"zonmAdd", "vv", "vav vava", "src1 src2 dst len count"},
    {"zonmAdd", "vc", "vac", "src val dst len count"},
    {"zonmAdd", "", "vca vaca", "src vals dst len count"},
    {"zonmSub", "vv", "vav vva vava", "src1 src2 dst len count"},
    {"zonmSub", "vc cv", "vac cva", "src val dst len count"},
    {"zonmSub", "", "vca cav vaca cava", "src vals dst len count"},
    {"zonmCopy", "", "ma", "src dst width height count"},
    {"zonmCopy", "", "va", "src dst len count"},
    {"zonmExtract", "m t", "ma ta", "src dst. width height count"},
    {"zonmExtract", "v", "va", "src dst. len count"},
    {"zonmLoadIdentity", "", "ma", "dst width height count"},
    {"zonmTranspose", "m", "ma", "src width height dst count"},
    {"zonmMul", "mm mt tm tt", "mam mat tam tat mma mta tma tta mama mata tama tata",
     "src1 src1Width src1Height src2 src2Width src2Height dst count"},
    {"zonmMul", "mv tv", "mav tav mva tva mava tava",
     "src1 src1Width src1Height src2 src2Len dst count"},
    {"zonmGaxpy", "mv", "mva mvav",
     "src1 src1Width src1Height src2 src2Len src3 src3Len dst count"},
    {"zonmMul", "mc tc", "mac tac", "src val dst width height count"},
    {"zonmMul", "vc", "vac", "src val dst len count"},
    {"zonmMul", "", "vca vaca", "src vals dst len count"},
    {"zonmDotProduct", "vv", "vav vava", "src1 src2 dst. len count"},
    {"zonmCrossProduct", "vv", "vav vva vava", "src1 src2 dst count"},
    {"zonmL2Norm", "v", "va", "src dst. len count"},
    {"zonmLComb", "vv", "vav vava", "src1 val1 src2 val2 dst len count"},
    {"zonmSaxpy", "vv", "vav vva vava", "src1 val src2 dst len count"},
    {"zonmTrace", "m", "ma", "src width dst. count"},
    {"zonmFrobNorm", "m", "ma", "src width height dst. count"},
    {"zonmLUDecomp", "m", "ma", "src pivots dst size count"},
    {"zonmLUBackSubst", "mv", "mva mava", "src1 pivots src2 dst size count"},
    {"zonmCholeskyDecomp", "m", "ma", "src dst size count"},
    {"zonmCholeskyBackSubst", "mv", "mva mava", "src1 src2 dst size count"},
    {"zonmQRDecomp", "m", "ma", "src buffer dst width height count"},
    {"zonmQRBackSubst", "mv", "mva mava", "src1 buffer src2 dst width height count"},
    {"zonmDet", "m", "ma", "src size buffer dst. count"},
    {"zonmInvert", "m", "ma", "src buffer dst size count"},
    {"zonmEigenValuesSym", "m", "ma", "src buffer dstValues. size count"},
    {"zonmEigenValuesVectorsSym", "m", "ma", "src buffer dstVectors dstValues. size count"},
    {"zonmEigenValues", "m", "ma", "src dstValuesRe. dstValuesIm. size count buffer"},
    {"zonmEigenValuesVectors", "m", "ma",
     "src dstRight dstLeft dstValuesRe. dstValuesIm. size count buffer"},
    {"zonmEigenValuesVectorsLeft", "m", "ma",
     "src dstVectors dstValuesRe. dstValuesIm. size count buffer"},
    {"zonmEigenValuesVectorsRight", "m", "ma",
     "src dstVectors dstValuesRe. dstValuesIm. size count buffer"},
};

// The fixed-size kit: `*` before a pointer to float that is written, `&` before one that is read,
// nothing before a float by value; other types in front of their name.
struct Kit {
    const char *operations, *groups, *list;
};

const Kit kit[] = {
    {"zonmAdd zonmSub zonmMin zonmMax zonmDotProduct", "v2 v3 v4", "&src1 &src2 *dst"},
    {"zonmCrossProduct", "v2 v3", "&src1 &src2 *dst"},
    {"zonmCrossProduct", "v4", "&src1 &src2 &src3 *dst"},
    {"zonmMulC", "v2 v3 v4", "&src val *dst"},
    {"zonmLen zonmLenSqr zonmNormalize", "v2 v3 v4", "&src *dst"},
    {"zonmBaryCentric", "v2 v3 v4", "&src1 &src2 &src3 f g *dst"},
    {"zonmHermite", "v2 v3 v4", "&pos1 &tan1 &pos2 &tan2 s *dst"},
    {"zonmInterpolationLinear", "v2 v3 v4", "&src1 &src2 s *dst"},
    {"zonmInterpolationCatmullRom", "v2 v3 v4", "&src1 &src2 &src3 &src4 s *dst"},

    {"zonmIdentity", "m4", "*dst"},
    {"zonmIsIdentity", "m4", "&src int*dst"},
    {"zonmTranspose zonmDet", "m4", "&src *dst"},
    {"zonmInvert", "m4", "&src *det *dst"},
    {"zonmMul", "mm4x4", "&src1 &src2 *dst"},
    {"zonmMulTranspose", "m4", "&src1 &src2 *dst"},
    {"zonmScaling", "m4", "sx sy sz *dst"},
    {"zonmTranslation", "m4", "tx ty tz *dst"},
    {"zonmRotationX zonmRotationY zonmRotationZ", "m4", "angle *dst"},
    {"zonmRotationAxis", "v3m4", "&axis angle *dst"},
    {"zonmRotationYawPitchRoll", "m4", "yaw pitch roll *dst"},

    {"zonmLookAtLH zonmLookAtRH", "m4", "&eye &at &up *dst"},
    {"zonmOrthoLH zonmOrthoRH zonmPerspectiveLH zonmPerspectiveRH", "m4",
     "width height zNear zFar *dst"},
    {"zonmOrthoOffCenterLH zonmOrthoOffCenterRH zonmPerspectiveOffCenterLH "
     "zonmPerspectiveOffCenterRH",
     "m4", "left right bottom top zNear zFar *dst"},
    {"zonmPerspectiveFovLH zonmPerspectiveFovRH", "m4", "fovY aspect zNear zFar *dst"},

    {"zonmAffineTransform", "m4v2 m4v3 m4v4", "&src1 &src2 *dst"},
    {"zonmAffineTransformCoord zonmAffineTransformNormal", "m4v2 m4v3", "&src1 &src2 *dst"},
    {"zonmAffineTransform", "m4v2a m4v3a m4v4a",
     "&src1 &src2 int:src2Stride0 *dst int:dstStride0 int:count"},
    {"zonmAffineTransformCoord zonmAffineTransformNormal", "m4v2a m4v3a",
     "&src1 &src2 int:src2Stride0 *dst int:dstStride0 int:count"},
    {"zonmProject zonmUnproject", "m4v3", "&proj &view &world &src width height zMin zMax *dst"},
    {"zonmProject zonmUnproject", "m4v3a",
     "&proj &view &world &src int:srcStride0 width height zMin zMax *dst int:dstStride0 int:count"},
};

// Check orders ---------------------------------------------------------------------------------

// The first line whose pattern is the whole name gives the order; `src:` and `dst:` narrow a step
// to the arguments of the sources or the outputs.
struct Order {
    const char *pattern, *steps;
};

const Order orders[] = {
    // Sums that judge strides before sizes, or count late.
    {"zonm(Add_mam|Sub_mam|Sub_mma)_(32f|64f)", "pointers count strides sizes"},
    {"zonm(Add|Sub)_vav_(32f|64f)", "pointers sizes strides count"},
    {"zonm(Add|Sub)_vav_(32f|64f)_L", "pointers sizes strides shifts count"},
    {"zonm(Add|Sub)_vav_(32f|64f)_P", "pointers sizes strides count shifts"},
    {"zonmAdd_vca_64f_P", "pointers count sizes shifts strides"},

    // Moves.
    {"zonmCopy_va_32f_(LP|SP)", "pointers sizes count shifts strides stride0"},
    {"zonmCopy_.*_SS", "pointers sizes count strides stride0"},
    {"zonmCopy_.*_LL", "pointers sizes count strides shifts"},
    {"zonmCopy_.*_PP", "pointers sizes count shifts stride0"},
    {"zonmCopy_.*", "pointers sizes count strides shifts stride0"},
    {"zonmExtract_(m|t)_(32f|64f)_P|zonmExtract_v_64f_P", "sizes pointers shifts"},
    {"zonmExtract_.a_(32f|64f)", "pointers sizes count strides"},
    {"zonmExtract_.a_(32f|64f)_[LP]", "pointers sizes count shifts strides"},
    {"zonmLoadIdentity_ma_(32f|64f)", "pointers sizes count strides stride0"},
    {"zonmLoadIdentity_ma_(32f|64f)_L", "pointers sizes count strides shifts"},
    {"zonmLoadIdentity_ma_32f_P", "pointers sizes shifts count stride0"},
    {"zonmLoadIdentity_ma_64f_P", "pointers sizes count shifts stride0"},

    // No size argument: the length is three.
    {"zonmCrossProduct_vv_(32f|64f)", "pointers strides"},
    {"zonmCrossProduct_vv_(32f|64f)_P", "pointers shifts"},
    {"zonmCrossProduct_vav_(32f|64f)", "pointers strides count"},
    {"zonmCrossProduct_vav_(32f|64f)_L", "pointers strides shifts count"},
    {"zonmCrossProduct_vav_(32f|64f)_P", "pointers strides count shifts"},
    {"zonmCrossProduct_(vva|vava)_(32f|64f)|zonmAffineTransform3DH_mva_32f",
     "pointers count strides"},
    {"zonmCrossProduct_(vva|vava)_(32f|64f)_[LP]", "pointers count strides shifts"},

    // Solvers and eigenproblems.
    {"zonmCholeskyBackSubst_mva_(32f|64f)_L", "pointers strides shifts sizes count"},
    {"zonmEigenValues(Vectors)?GetBufSize_(32f|64f)", "pointers sizes"},
    {"zonmEigenValues.*_ma_(32f|64f)", "pointers sizes count strides"},
    {"zonmEigenValues(VectorsSym|Sym)?_ma_(32f|64f)_[LP]", "pointers sizes count shifts strides"},
    {"zonmEigenValuesVectors(Left|Right)?_ma_(32f|64f)_[LP]",
     "pointers sizes count src:shifts src:strides dst:shifts dst:strides"},
    {"zonmQR(Decomp|BackSubst)_(m|mv)_(32f|64f)", "pointers sizes strides shapes"},
    {"zonmQR(Decomp|BackSubst)_(m|mv)_(32f|64f)_P", "pointers sizes shifts shapes"},
    {"zonmQR(Decomp|BackSubst)_.*a_(32f|64f)", "pointers count sizes strides shapes"},
    {"zonmQR(Decomp|BackSubst)_.*a_(32f|64f)_[LP]", "pointers count sizes strides shifts shapes"},

    // Products of two operands with sizes of their own.
    {"zonm(Mul_[mt][mtv]|Gaxpy_mv)_(32f|64f)", "pointers sizes shapes strides"},
    {"zonm(Mul_[mt][mtv]|Gaxpy_mv)_(32f|64f)_P", "pointers sizes shapes shifts"},
    {"zonm(Mul_[mt]a?[mtv]a?|Gaxpy_mva|Gaxpy_mvav)_(32f|64f)",
     "pointers count sizes shapes strides"},
    {"zonm(Mul_[mt]a?[mtv]a?|Gaxpy_mva|Gaxpy_mvav)_(32f|64f)_[LP]",
     "pointers count sizes shapes strides shifts"},

    // The fixed-size kit judges nothing, with one exception.
    {"zonmMul_mm4x4_32f", "pointers"},
    {"zonm.*_(v[234]|m4|v3m4|m4v[234]a?)_32f", ""},

    // The standard orders.
    {"zonm.*_[mtvc]{1,2}_(32f|64f)", "pointers sizes strides"},
    {"zonm.*_[mtvc]{1,2}_(32f|64f)_P", "pointers sizes shifts"},
    {"zonm.*_[mtvc]+a.*_(32f|64f)", "pointers count sizes strides"},
    {"zonm.*_[mtvc]+a.*_(32f|64f)_[LP]", "pointers count sizes strides shifts"},
};

std::string orderOf(const std::string &name)
{
    static const auto compiled = [] {
        std::vector<std::pair<std::regex, const char *>> list;
        for (const Order &o : orders)
            list.emplace_back(std::regex(o.pattern), o.steps);
        return list;
    }();
    for (const auto &[pattern, steps] : compiled)
        if (std::regex_match(name, pattern))
            return steps;
    throw std::logic_error("no check order: " + name);
}

bool ends(const std::string &s, std::string_view tail) { return s.ends_with(tail); }

bool isSize(const std::string &n)
{
    return n == "size" || n == "width" || n == "height" || n == "len" || ends(n, "Width") ||
           ends(n, "Height") || ends(n, "Len");
}

bool isJudged(std::string step, const Signature::Argument &a, bool stride0Last)
{
    if (step.starts_with("src:") || step.starts_with("dst:")) {
        if (!a.name.starts_with(step.substr(0, 3)))
            return false;
        step = step.substr(4);
    }
    if (step == "pointers")
        return ends(a.type, "*");
    if (a.type != "int32_t")
        return false;
    if (step == "count")
        return a.name == "count";
    if (step == "sizes" || step == "shapes")
        return isSize(a.name);
    if (step == "stride0")
        return ends(a.name, "Stride0");
    if (step == "strides")
        return ends(a.name, "Stride1") || ends(a.name, "Stride2") ||
               (!stride0Last && ends(a.name, "Stride0"));
    if (step == "shifts")
        return ends(a.name, "Shift");
    throw std::logic_error("no such step: " + step);
}

void addSteps(Signature &s)
{
    const auto order = words(orderOf(s.name));
    const bool stride0Last = !order.empty() && order.back() == "stride0";
    for (const std::string &step : order) {
        Signature::Step judged{step.substr(step.find(':') + 1), {}};
        for (const Signature::Argument &a : s.arguments)
            if (isJudged(step, a, stride0Last))
                judged.arguments.push_back(a.name);
        if (step == "stride0")
            judged.name = "stride0 if many";
        if (!judged.arguments.empty())
            s.steps.push_back(judged);
    }
}

// Arguments ------------------------------------------------------------------------------------

struct Letter {
    char kind;
    bool array;
};

std::vector<Letter> lettersOf(const std::string &group)
{
    std::vector<Letter> letters;
    for (const char c : group) {
        if (c == 'a')
            letters.back().array = true;
        else
            letters.push_back({c, false});
    }
    return letters;
}

using Arguments = std::vector<Signature::Argument>;

void addBlock(Arguments &list, const std::string &name, Letter operand, bool output,
              const std::string &number, char description)
{
    const std::string element = (output ? "" : "const ") + number;
    const std::string prefix = name == "dstVectors" ? "dst" : name;
    const bool matrix = operand.kind == 'm' || operand.kind == 't';
    const bool constant = operand.kind == 'c';
    auto integers = [&](std::initializer_list<const char *> suffixes) {
        for (const char *suffix : suffixes)
            list.push_back({"int32_t", prefix + suffix});
    };
    auto pointer = [&] { list.push_back({element + " *", name}); };
    auto table = [&] { list.push_back({element + " *const *", name}); };

    if (constant && !operand.array) {
        list.push_back({number, name});
    } else if (constant && description == 'L') {
        table();
        integers({"Shift"});
    } else if (constant) {
        pointer();
        integers({"Stride0"});
    } else if (description == 'P') {
        table();
        integers({"Shift"});
        if (operand.array)
            integers({"Stride0"});
    } else {
        if (description == 'L' && operand.array) {
            table();
            integers({"Shift"});
        } else {
            pointer();
            if (operand.array)
                integers({"Stride0"});
        }
        if (matrix)
            integers({"Stride1"});
        integers({"Stride2"});
    }
}

Signature general(const Family &f, const std::string &group, const std::string &type,
                  const std::string &description)
{
    Signature s;
    s.name =
        f.operation + ("_" + group) + "_" + type + (description.empty() ? "" : "_" + description);
    const std::string number = type == "32f" ? "float" : "double";
    const auto letters = lettersOf(group);
    const bool array = std::ranges::any_of(letters, &Letter::array);
    // The result has the shape of the sources: a vector where one takes part.
    const bool vectors = group.find('v') != std::string::npos;
    const Letter result{vectors ? 'v' : 'm', array};
    const char from = description.empty() ? 'S' : description.front();
    const char to = description.empty() ? 'S' : description.back();
    const bool back = std::string_view(f.operation).find("BackSubst") != std::string_view::npos;

    // The sources by name: constants stand apart from the numbering.
    auto source = [&](const std::string &name) -> Letter {
        std::vector<Letter> numbered;
        for (const Letter l : letters)
            if ((l.kind == 'c') == (name.starts_with("val")))
                numbered.push_back(l);
        if (std::string_view(f.operation) == "zonmGaxpy" && numbered.size() == 2)
            numbered.push_back(numbered[1]); // the vector to add is described as the other
        if (name.starts_with("val") && numbered.empty())
            return {'c', false}; // factors that no letter names
        const bool isNumbered = std::isdigit(static_cast<unsigned char>(name.back())) != 0;
        return numbered.at(isNumbered ? std::size_t(name.back() - '1') : 0);
    };

    for (const std::string &word : words(f.list)) {
        if (word == "count") {
            if (array)
                s.arguments.push_back({"int32_t", word});
        } else if (word == "buffer") {
            s.arguments.push_back({"void *", word});
        } else if (word == "pivots") {
            s.arguments.push_back({back ? "const int32_t *" : "int32_t *", word});
        } else if (ends(word, ".")) {
            s.arguments.push_back({number + " *", word.substr(0, word.size() - 1)});
        } else if (isSize(word)) {
            s.arguments.push_back({"int32_t", word});
        } else if (word.starts_with("dst")) {
            addBlock(s.arguments, word, result, true, number, to);
        } else {
            addBlock(s.arguments, word, source(word), false, number, from);
        }
    }
    addSteps(s);

    if (std::ranges::any_of(s.steps, [](auto &step) { return step.name == "shapes"; })) {
        if (s.name.starts_with("zonmQR")) {
            s.misfits = {{"width", 1}, {"height", -1}};
        } else {
            // The inner length of both operands, and for Gaxpy the length of the result.
            const char second = letters[1].kind;
            std::vector<std::string> inner = {letters[0].kind == 't' ? "src1Height" : "src1Width",
                                              second == 'v'   ? "src2Len"
                                              : second == 't' ? "src2Width"
                                                              : "src2Height"};
            if (s.name.starts_with("zonmGaxpy"))
                inner.insert(inner.end(), {"src1Height", "src3Len"});
            for (const std::string &argument : inner)
                for (const int change : {-1, 1})
                    s.misfits.emplace_back(argument, change);
        }
    }
    return s;
}

Signature ofKit(const std::string &operation, const std::string &group, const std::string &list)
{
    Signature s;
    s.name = operation + "_" + group + "_32f";
    for (const std::string &word : words(list)) {
        if (word[0] == '&')
            s.arguments.push_back({"const float *", word.substr(1)});
        else if (word[0] == '*')
            s.arguments.push_back({"float *", word.substr(1)});
        else if (word.starts_with("int*"))
            s.arguments.push_back({"int32_t *", word.substr(4)});
        else if (word.starts_with("int:"))
            s.arguments.push_back({"int32_t", word.substr(4)});
        else
            s.arguments.push_back({"float", word});
    }
    addSteps(s);
    return s;
}

std::vector<Signature> derive()
{
    std::vector<Signature> list;
    for (const Family &f : families)
        for (const std::string type : {"32f", "64f"}) {
            const std::string_view operation = f.operation;
            for (const std::string &group : words(f.single))
                for (const char *description : {"", "P"})
                    list.push_back(general(f, group, type, description));
            for (const std::string &group : words(f.array)) {
                const auto descriptions =
                    words(operation == "zonmCopy" ? "SS SL SP LS LL LP PS PL PP" : "S L P");
                for (const std::string &d : descriptions)
                    list.push_back(general(f, group, type, d == "S" ? "" : d));
            }
        }
    for (const std::string query :
         {"zonmEigenValuesGetBufSize_", "zonmEigenValuesVectorsGetBufSize_"})
        for (const std::string type : {"32f", "64f"}) {
            Signature s;
            s.name = query + type;
            s.arguments = {{"int32_t", "size"}, {"int32_t *", "bufSize"}};
            addSteps(s);
            list.push_back(s);
        }
    for (const Kit &k : kit)
        for (const std::string &operation : words(k.operations))
            for (const std::string &group : words(k.groups))
                list.push_back(ofKit(operation, group, k.list));
    list.push_back(
        general({"zonmAffineTransform3DH", "", "mva", "src1 src2 dst count"}, "mva", "32f", ""));
    return list;
}

} // namespace

int statusOf(std::string_view step)
{
    const std::pair<std::string_view, int> values[] = {
        {"pointers", -8},          {"count", -203},   {"sizes", -6},
        {"shapes", -204},          {"strides", -182}, {"shifts", -202},
        {"stride0 if many", -182},
    };
    for (const auto &[name, status] : values)
        if (name == step)
            return status;
    throw std::invalid_argument("no such step: " + std::string(step));
}

const std::vector<Signature> &signatures()
{
    static const std::vector<Signature> list = derive();
    return list;
}

const Signature &signatureOf(std::string_view name)
{
    const auto it = std::ranges::find(signatures(), name, &Signature::name);
    if (it == signatures().end())
        throw std::invalid_argument("no such export: " + std::string(name));
    return *it;
}

} // namespace test
