#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The one ordered manifest of zonm's exports, and everything that follows from it.

An export's name states operation, operands, element type and description; from those follow its
argument list and the order in which its arguments are judged. This file states that grammar once:
first the operand blocks, then the families, then the departures from the standard check orders.
`generate.py` writes the header, the export table, the entries, the linker scripts and zonm.json.
"""

from dataclasses import dataclass, field, replace

STRIDED, OBJECTS, ELEMENTS = "", "L", "P"
ELEMENT_TYPES = {"32f": "float", "64f": "double"}

STATUS_OF_STEP = {
    "pointers": "zonStsNullPointer",
    "count": "zonStsBadCount",
    "sizes": "zonStsBadSize",
    "shapes": "zonStsShapeMismatch",
    "strides": "zonStsBadStride",
    "shifts": "zonStsBadShift",
    "stride0 if many": "zonStsBadStride",
}


@dataclass(frozen=True)
class Argument:
    name: str
    type: str  # C type; a trailing '*' binds to the name
    role: str  # pointer, table, stride0, stride1, stride2, shift, size, count, value, scratch
    operand: str = ""  # the operand that it belongs to, empty for sizes shared by all

    def declaration(self):
        return f"{self.type}{self.name}" if self.type.endswith("*") else f"{self.type} {self.name}"


@dataclass(frozen=True)
class Operand:
    """One operand of a call: `kind` is m (matrix), v (vector) or c (constant)."""

    name: str
    kind: str
    array: bool = False
    transposed: bool = False
    description: str = STRIDED
    output: bool = False

    @property
    def prefix(self):
        # The vectors' matrix of a symmetric eigenproblem is described as plain `dst`.
        return "dst" if self.name == "dstVectors" else self.name

    def block(self, element):
        """The run of arguments that describes the operand."""
        ctype = ELEMENT_TYPES[element] if self.output else "const " + ELEMENT_TYPES[element]
        table = self.description == ELEMENTS or (self.description == OBJECTS and self.array)
        if self.kind == "c" and not self.array:
            return [Argument(self.name, ELEMENT_TYPES[element], "value", self.name)]
        if self.kind == "c" and self.description == ELEMENTS:
            table = False  # constants are no elements of an object: a plain base pointer serves
        block = [
            Argument(self.name, f"{ctype} *const *", "table", self.name)
            if table
            else Argument(self.name, f"{ctype} *", "pointer", self.name)
        ]

        def add(suffix, role):
            block.append(Argument(self.prefix + suffix, "int32_t", role, self.name))

        if table:
            add("Shift", "shift")
        if self.array and self.description != OBJECTS:
            add("Stride0", "stride0")
        if self.kind != "c" and self.description != ELEMENTS:
            if self.kind == "m":
                add("Stride1", "stride1")
            add("Stride2", "stride2")
        return block


@dataclass
class Export:
    name: str
    family: str  # the section of the header
    operation: str  # zonmAdd, ...
    group: str
    element: str
    description: str
    operands: list  # the described operands, in order, destinations included
    arguments: list
    checks: list  # [(step, [argument names])], in order
    kernel_statuses: tuple = ()
    returns: str = "ZonStatus"
    ordinal: int = 0

    @property
    def statuses(self):
        found = ["zonStsOk"] + [STATUS_OF_STEP[step] for step, _ in self.checks]
        return list(dict.fromkeys(found + list(self.kernel_statuses)))


def dense_pointer(name, ctype, role="pointer"):
    return Argument(name, f"{ctype} *", role, name)


def size_arguments(prefix, *names):
    """`width`, `height` or `len`, with the operand's name in front where it has sizes of its own."""
    return [
        Argument(prefix + n[0].upper() + n[1:] if prefix else n, "int32_t", "size", prefix)
        for n in names
    ]


COUNT = Argument("count", "int32_t", "count")
SIZE = Argument("size", "int32_t", "size")
BUFFER = Argument("buffer", "void *", "scratch", "buffer")


# Check orders ---------------------------------------------------------------------------------


def judged(step, arguments, operands=None):
    """The arguments that a step judges, in the order of the list."""
    chosen = [a for a in arguments if operands is None or a.operand in operands]
    roles = {
        "pointers": ("pointer", "table", "scratch"),
        "count": ("count",),
        "sizes": ("size",),
        "shapes": ("size",),
        "strides": ("stride0", "stride1", "stride2"),
        "strides but stride0": ("stride1", "stride2"),
        "stride0 if many": ("stride0",),
        "shifts": ("shift",),
    }[step]
    return [a.name for a in chosen if a.role in roles]


def steps(order, arguments):
    """An order such as "pointers, count, sizes" as steps with their arguments; empty ones drop out."""
    result = []
    for step in order.split(", "):
        names = judged(step, arguments)
        if names:
            result.append(("strides" if step == "strides but stride0" else step, names))
    return result


SINGLES = "pointers, sizes, strides, shifts"
ARRAYS = "pointers, count, sizes, strides, shifts"

# Every departure from the two standard orders. They are the interface, asymmetries included.
# Key: (operation, groups, descriptions, element types); None stands for all. First match counts.
EXCEPTIONS = [
    (("zonmAdd", ["mam"], [STRIDED], None), "pointers, count, strides, sizes"),
    (("zonmSub", ["mam", "mma"], [STRIDED], None), "pointers, count, strides, sizes"),
    (("zonmAdd", ["vav"], [STRIDED], None), "pointers, sizes, strides, count"),
    (("zonmSub", ["vav"], [STRIDED], None), "pointers, sizes, strides, count"),
    (("zonmAdd", ["vav"], [OBJECTS], None), "pointers, sizes, strides, shifts, count"),
    (("zonmSub", ["vav"], [OBJECTS], None), "pointers, sizes, strides, shifts, count"),
    (("zonmAdd", ["vav"], [ELEMENTS], None), "pointers, sizes, strides, count, shifts"),
    (("zonmSub", ["vav"], [ELEMENTS], None), "pointers, sizes, strides, count, shifts"),
    (("zonmAdd", ["vca"], [ELEMENTS], ["64f"]), "pointers, count, sizes, shifts, strides"),
    (("zonmCholeskyBackSubst", ["mva"], [OBJECTS], None), "pointers, strides, shifts, sizes, count"),
    (("zonmCrossProduct", ["vav"], [STRIDED], None), "pointers, strides, count"),
    (("zonmCrossProduct", ["vav"], [OBJECTS], None), "pointers, strides, shifts, count"),
    (("zonmCrossProduct", ["vav"], [ELEMENTS], None), "pointers, strides, count, shifts"),
    (("zonmExtract", ["m", "t"], [ELEMENTS], None), "sizes, pointers, shifts"),
    (("zonmExtract", ["v"], [ELEMENTS], ["64f"]), "sizes, pointers, shifts"),
    (("zonmExtract", ["ma", "ta", "va"], None, None), "pointers, sizes, count, shifts, strides"),
    (("zonmEigenValues", ["ma"], None, None), "pointers, sizes, count, shifts, strides"),
    (("zonmEigenValuesSym", ["ma"], None, None), "pointers, sizes, count, shifts, strides"),
    (("zonmEigenValuesVectorsSym", ["ma"], None, None), "pointers, sizes, count, shifts, strides"),
    (
        ("zonmLoadIdentity", ["ma"], [ELEMENTS], ["32f"]),
        "pointers, sizes, shifts, count, stride0 if many",
    ),
    (
        ("zonmLoadIdentity", ["ma"], None, None),
        "pointers, sizes, count, strides but stride0, shifts, stride0 if many",
    ),
    (
        ("zonmCopy", ["va"], ["LP", "SP"], ["32f"]),
        "pointers, sizes, count, shifts, strides but stride0, stride0 if many",
    ),
    (
        ("zonmCopy", None, None, None),
        "pointers, sizes, count, strides but stride0, shifts, stride0 if many",
    ),
    (("zonmMul", ["mm4x4"], None, None), "pointers"),
]

# Where the sizes of the operands have to fit together, and whether right behind the sizes or last.
SHAPES_BEHIND_SIZES = ("matrix_product", "matrix_vector_product", "gaxpy")
SHAPES_LAST = ("qr_decomp", "qr_back_subst")


def check_order(family, operation, group, description, element, arguments):
    order = ARRAYS if any(a.role == "count" for a in arguments) else SINGLES
    for (op, groups, descriptions, elements), exception in EXCEPTIONS:
        if (
            op == operation
            and (groups is None or group in groups)
            and (descriptions is None or description in descriptions)
            and (elements is None or element in elements)
        ):
            order = exception
            break
    if family in SHAPES_BEHIND_SIZES:
        order = order.replace("sizes", "sizes, shapes")
    if family in SHAPES_LAST:
        order += ", shapes"
    return steps(order, arguments)


# Families -------------------------------------------------------------------------------------

EXPORTS = []


def export(family, operation, group, element, description, operands, arguments, kernel_statuses=(), checks=None):
    described = [replace(o, description=o.description or description) for o in operands]
    suffix = f"_{description}" if description else ""
    letters = f"_{group}" if group else ""
    if checks is None:
        checks = check_order(family, operation, group, description, element, arguments)
    EXPORTS.append(
        Export(
            f"{operation}{letters}_{element}{suffix}", family, operation, group, element, description,
            described, arguments, checks, kernel_statuses,
        )
    )


def letters(group):
    """The operands that a group of letters spells, such as `tama`: [("t", True), ("m", True)]."""
    spelt = []
    for letter in group:
        if letter == "a":
            spelt[-1] = (spelt[-1][0], True)
        else:
            spelt.append((letter, False))
    return spelt


def forms(groups, descriptions=(STRIDED, OBJECTS, ELEMENTS)):
    """Each group with its element types and descriptions; only a group with an array has `_L`."""
    for group in groups:
        for element in ELEMENT_TYPES:
            for description in descriptions:
                if description != OBJECTS or "a" in group:
                    yield group, element, description


def spelt_operands(group, description):
    """Sources by their letters: vectors before constants, named src or src1, src2; val or vals."""
    sources, constants = [], []
    spelt = letters(group)
    several = sum(1 for letter, _ in spelt if letter != "c") > 1
    for letter, array in spelt:
        if letter == "c":
            constants.append(Operand("vals" if array else "val", "c", array, description=description))
        else:
            name = f"src{len(sources) + 1}" if several else "src"
            kind = "m" if letter == "t" else letter
            sources.append(Operand(name, kind, array, letter == "t", description))
    return sources, constants


def is_array(group):
    return "a" in group


def destination(kind, group, description, name="dst"):
    return Operand(name, kind, is_array(group), description=description, output=True)


def blocks(operands, element):
    return [a for o in operands for a in o.block(element)]


def count_of(group):
    return [COUNT] if is_array(group) else []


def one_shape(family, operation, groups):
    """Families whose operands all have one shape: the sizes close the list."""
    for group, element, description in forms(groups):
        sources, constants = spelt_operands(group, description)
        kind = sources[0].kind
        operands = sources + constants + [destination(kind, group, description)]
        sizes = size_arguments("", "width", "height") if kind == "m" else size_arguments("", "len")
        export(family, operation, group, element, description, operands,
               blocks(operands, element) + sizes + count_of(group))


def own_sizes(family, operation, groups, result):
    """Products: each source is followed at once by its own sizes, `dst` has none."""
    for group, element, description in forms(groups):
        sources, _ = spelt_operands(group, description)
        if operation == "zonmGaxpy":  # the vector to add is an array in mva alone
            spelt = [("m", False), ("v", group != "mv"), ("v", group == "mva")]
            sources = [Operand(f"src{i + 1}", k, a, description=description) for i, (k, a) in enumerate(spelt)]
        dst = destination(result, group, description)
        arguments = []
        for s in sources:
            arguments += s.block(element)
            arguments += size_arguments(s.name, *(("width", "height") if s.kind == "m" else ("len",)))
        export(family, operation, group, element, description, sources + [dst],
               arguments + dst.block(element) + count_of(group))


def sum_families():
    singles = ["mm", "tm", "tt"]
    arrays = ["mam", "mat", "tam", "tat", "mama", "tama", "tata"]
    one_shape("matrix_sums", "zonmAdd", singles + arrays)
    one_shape("matrix_sums", "zonmSub", singles + ["mt"] + arrays + ["mma", "mta", "tma", "tta", "mata"])
    one_shape("vector_sums", "zonmAdd", ["vv", "vc", "vav", "vava", "vac", "vca", "vaca"])
    one_shape("vector_sums", "zonmSub", ["vv", "vc", "cv", "vav", "vva", "vava", "vac", "cva", "vca",
                                         "cav", "vaca", "cava"])


def movement_families():
    letter_form = {"S": STRIDED, "L": OBJECTS, "P": ELEMENTS}
    for group, kind in (("ma", "m"), ("va", "v")):
        sizes = size_arguments("", "width", "height") if kind == "m" else size_arguments("", "len")
        for element in ELEMENT_TYPES:
            for pair in ("SS", "SL", "SP", "LS", "LL", "LP", "PS", "PL", "PP"):
                src = Operand("src", kind, True, description=letter_form[pair[0]])
                dst = Operand("dst", kind, True, description=letter_form[pair[1]], output=True)
                arguments = blocks([src, dst], element) + sizes + [COUNT]
                checks = check_order("copy", "zonmCopy", group, pair, element, arguments)
                EXPORTS.append(Export(f"zonmCopy_{group}_{element}_{pair}", "copy", "zonmCopy", group, element,
                                      pair, [src, dst], arguments, checks))
    for group, element, description in forms(["m", "t", "ma", "ta", "v", "va"]):
        sources, _ = spelt_operands(group, description)
        sizes = size_arguments("", "len") if sources[0].kind == "v" else size_arguments("", "width", "height")
        arguments = blocks(sources, element) + [dense_pointer("dst", ELEMENT_TYPES[element])]
        export("extract", "zonmExtract", group, element, description, sources,
               arguments + sizes + count_of(group))
    for group, element, description in forms(["ma"]):
        dst = destination("m", group, description)
        export("load_identity", "zonmLoadIdentity", group, element, description, [dst],
               dst.block(element) + size_arguments("", "width", "height") + [COUNT])
    for group, element, description in forms(["m", "ma"]):
        sources, _ = spelt_operands(group, description)
        dst = destination("m", group, description)
        export("transpose", "zonmTranspose", group, element, description, sources + [dst],
               blocks(sources, element) + size_arguments("", "width", "height") + dst.block(element)
               + count_of(group))


def product_families():
    pairs = [a + b for a in ("m", "t") for b in ("m", "t")]
    groups = pairs + [f"{p[0]}{x}{p[1]}{y}" for x, y in (("a", ""), ("", "a"), ("a", "a")) for p in pairs]
    own_sizes("matrix_product", "zonmMul", groups, "m")
    own_sizes("matrix_vector_product", "zonmMul",
              ["mv", "tv", "mav", "tav", "mva", "tva", "mava", "tava"], "v")
    own_sizes("gaxpy", "zonmGaxpy", ["mv", "mva", "mvav"], "v")
    one_shape("constant_product", "zonmMul", ["mc", "tc", "mac", "tac", "vc", "vac", "vca", "vaca"])


def vector_product_families():
    def list_of(operation, group, element, description):
        sources, _ = spelt_operands(group, description)
        value = ELEMENT_TYPES[element]
        arguments = []
        for i, s in enumerate(sources):
            arguments += s.block(element)
            if operation == "zonmLComb":
                arguments.append(Argument(f"val{i + 1}", value, "value", f"val{i + 1}"))
            if operation == "zonmSaxpy" and i == 0:
                arguments.append(Argument("val", value, "value", "val"))
        return sources, arguments

    for family, operation, groups in (
        ("dot_product", "zonmDotProduct", ["vv", "vav", "vava"]),
        ("l2_norm", "zonmL2Norm", ["v", "va"]),
    ):
        for group, element, description in forms(groups):
            sources, arguments = list_of(operation, group, element, description)
            arguments.append(dense_pointer("dst", ELEMENT_TYPES[element]))
            export(family, operation, group, element, description, sources,
                   arguments + size_arguments("", "len") + count_of(group))
    for family, operation, groups in (
        ("cross_product", "zonmCrossProduct", ["vv", "vav", "vva", "vava"]),
        ("lcomb", "zonmLComb", ["vv", "vav", "vava"]),
        ("saxpy", "zonmSaxpy", ["vv", "vav", "vva", "vava"]),
    ):
        for group, element, description in forms(groups):
            sources, arguments = list_of(operation, group, element, description)
            dst = destination("v", group, description)
            sizes = [] if family == "cross_product" else size_arguments("", "len")
            export(family, operation, group, element, description, sources + [dst],
                   arguments + dst.block(element) + sizes + count_of(group))


def reduction_families():
    for family, operation, sizes in (("trace", "zonmTrace", ["width"]),
                                     ("frob_norm", "zonmFrobNorm", ["width", "height"])):
        for group, element, description in forms(["m", "ma"]):
            sources, _ = spelt_operands(group, description)
            export(family, operation, group, element, description, sources,
                   blocks(sources, element) + size_arguments("", *sizes)
                   + [dense_pointer("dst", ELEMENT_TYPES[element])] + count_of(group))


def solver_families():
    def pivots(writable):
        return Argument("pivots", "int32_t *" if writable else "const int32_t *", "pointer", "pivots")

    # family, operation, extra pointer behind the matrix, sizes, kernel statuses
    tall = size_arguments("", "width", "height")
    for family, operation, extra, sizes, statuses in (
        ("lu_decomp", "zonmLUDecomp", [pivots(True)], [SIZE], ("zonStsSingular",)),
        ("cholesky_decomp", "zonmCholeskyDecomp", [], [SIZE], ("zonStsNotPositiveDefinite",)),
        ("qr_decomp", "zonmQRDecomp", [BUFFER], tall, ("zonStsDivByZero",)),
        ("invert", "zonmInvert", [BUFFER], [SIZE], ("zonStsSingular",)),
    ):
        for group, element, description in forms(["m", "ma"]):
            sources, _ = spelt_operands(group, description)
            dst = destination("m", group, description)
            export(family, operation, group, element, description, sources + [dst],
                   blocks(sources, element) + extra + dst.block(element) + sizes + count_of(group), statuses)
    for family, operation, extra, sizes in (
        ("lu_back_subst", "zonmLUBackSubst", [pivots(False)], [SIZE]),
        ("cholesky_back_subst", "zonmCholeskyBackSubst", [], [SIZE]),
        ("qr_back_subst", "zonmQRBackSubst", [BUFFER], tall),
    ):
        for group, element, description in forms(["mv", "mva", "mava"]):
            sources, _ = spelt_operands(group, description)
            dst = destination("v", group, description)
            export(family, operation, group, element, description, sources + [dst],
                   sources[0].block(element) + extra + sources[1].block(element) + dst.block(element)
                   + sizes + count_of(group))
    for group, element, description in forms(["m", "ma"]):
        sources, _ = spelt_operands(group, description)
        export("det", "zonmDet", group, element, description, sources,
               blocks(sources, element) + [SIZE, BUFFER, dense_pointer("dst", ELEMENT_TYPES[element])]
               + count_of(group))


def eigen_families():
    for operation in ("zonmEigenValuesSym", "zonmEigenValuesVectorsSym"):
        for group, element, description in forms(["m", "ma"]):
            sources, _ = spelt_operands(group, description)
            outputs = ([destination("m", group, description, "dstVectors")]
                       if operation == "zonmEigenValuesVectorsSym" else [])
            export("eigen_sym", operation, group, element, description, sources + outputs,
                   blocks(sources, element) + [BUFFER] + blocks(outputs, element)
                   + [dense_pointer("dstValues", ELEMENT_TYPES[element]), SIZE] + count_of(group),
                   ("zonStsSingular", "zonStsNoConvergence"))
    for operation, outputs, statuses in (
        ("zonmEigenValues", [], ("zonStsNoConvergence",)),
        ("zonmEigenValuesVectorsRight", ["dstVectors"], ("zonStsNoConvergence", "zonStsBlockSingular")),
        ("zonmEigenValuesVectorsLeft", ["dstVectors"], ("zonStsNoConvergence", "zonStsBlockSingular")),
        ("zonmEigenValuesVectors", ["dstRight", "dstLeft"], ("zonStsNoConvergence", "zonStsBlockSingular")),
    ):
        for group, element, description in forms(["m", "ma"]):
            sources, _ = spelt_operands(group, description)
            results = [destination("m", group, description, name) for name in outputs]
            value = ELEMENT_TYPES[element]
            arguments = (blocks(sources, element) + blocks(results, element)
                         + [dense_pointer("dstValuesRe", value), dense_pointer("dstValuesIm", value), SIZE]
                         + count_of(group) + [BUFFER])
            checks = None
            if outputs and is_array(group) and description == STRIDED:
                checks = steps("pointers, sizes, count, strides", arguments)
            elif outputs and is_array(group):
                # One shift-then-stride pair for the source, one for the vector outputs.
                checks = steps("pointers, sizes, count", arguments)
                for side in ({"src"}, set(outputs)):
                    checks += [("shifts", judged("shifts", arguments, side)),
                               ("strides", judged("strides", arguments, side))]
            export("eigen_values" if not outputs else "eigen_vectors", operation, group, element, description,
                   sources + results, arguments, statuses, checks)
    for operation in ("zonmEigenValuesGetBufSize", "zonmEigenValuesVectorsGetBufSize"):
        for element in ELEMENT_TYPES:
            arguments = [SIZE, dense_pointer("bufSize", "int32_t")]
            export("eigen_buf_size", operation, "", element, STRIDED, [], arguments,
                   checks=steps("pointers, sizes", arguments))


def fixed_size_kit():
    """Dense `32f` objects without any judged argument, but for two exports that say so."""
    source = lambda *names: [dense_pointer(n, "const float") for n in names]
    value = lambda *names: [Argument(n, "float", "value", n) for n in names]
    dst = [dense_pointer("dst", "float")]

    def kit(family, operation, group, arguments, statuses=(), checks=()):
        export(family, operation, group, "32f", STRIDED, [], arguments, statuses, list(checks))

    for n in (2, 3, 4):
        v = f"v{n}"
        for op in ("zonmAdd", "zonmSub", "zonmMin", "zonmMax", "zonmDotProduct"):
            kit("fixed_vectors", op, v, source("src1", "src2") + dst)
        kit("fixed_vectors", "zonmMulC", v, source("src") + value("val") + dst)
        crossed = ("src1", "src2", "src3") if n == 4 else ("src1", "src2")
        kit("fixed_vectors", "zonmCrossProduct", v, source(*crossed) + dst)
        for op in ("zonmLen", "zonmLenSqr", "zonmNormalize"):
            kit("fixed_vectors", op, v, source("src") + dst)
        kit("fixed_vectors", "zonmBaryCentric", v, source("src1", "src2", "src3") + value("f", "g") + dst)
        kit("fixed_vectors", "zonmHermite", v, source("pos1", "tan1", "pos2", "tan2") + value("s") + dst)
        kit("fixed_vectors", "zonmInterpolationLinear", v, source("src1", "src2") + value("s") + dst)
        kit("fixed_vectors", "zonmInterpolationCatmullRom", v,
            source("src1", "src2", "src3", "src4") + value("s") + dst)

    matrices = "fixed_matrices"
    kit(matrices, "zonmIdentity", "m4", dst)
    kit(matrices, "zonmIsIdentity", "m4", source("src") + [dense_pointer("dst", "int32_t")])
    kit(matrices, "zonmTranspose", "m4", source("src") + dst)
    kit(matrices, "zonmDet", "m4", source("src") + dst)
    kit(matrices, "zonmInvert", "m4", source("src") + [dense_pointer("det", "float")] + dst, ("zonStsSingular",))
    product = source("src1", "src2") + dst
    kit(matrices, "zonmMul", "mm4x4", product, checks=steps("pointers", product))
    kit(matrices, "zonmMulTranspose", "m4", product)
    kit(matrices, "zonmScaling", "m4", value("sx", "sy", "sz") + dst)
    kit(matrices, "zonmTranslation", "m4", value("tx", "ty", "tz") + dst)
    for axis in "XYZ":
        kit(matrices, f"zonmRotation{axis}", "m4", value("angle") + dst)
    kit(matrices, "zonmRotationAxis", "v3m4", source("axis") + value("angle") + dst)
    kit(matrices, "zonmRotationYawPitchRoll", "m4", value("yaw", "pitch", "roll") + dst)

    off_center = value("left", "right", "bottom", "top", "zNear", "zFar")
    for hand in ("LH", "RH"):
        kit("cameras", f"zonmLookAt{hand}", "m4", source("eye", "at", "up") + dst)
        for op in ("zonmOrtho", "zonmPerspective"):
            kit("cameras", f"{op}{hand}", "m4", value("width", "height", "zNear", "zFar") + dst)
            kit("cameras", f"{op}OffCenter{hand}", "m4", off_center + dst)
        kit("cameras", f"zonmPerspectiveFov{hand}", "m4", value("fovY", "aspect", "zNear", "zFar") + dst)

    def stride0(name):
        return Argument(f"{name}Stride0", "int32_t", "stride0", name)

    for op, lengths in (("zonmAffineTransform", (2, 3, 4)), ("zonmAffineTransformCoord", (2, 3)),
                        ("zonmAffineTransformNormal", (2, 3))):
        for n in lengths:
            kit("transforms", op, f"m4v{n}", source("src1", "src2") + dst)
            kit("transforms", op, f"m4v{n}a",
                source("src1", "src2") + [stride0("src2")] + dst + [stride0("dst"), COUNT])
    viewport = value("width", "height", "zMin", "zMax")
    for op, statuses in (("zonmProject", ()), ("zonmUnproject", ("zonStsSingular",))):
        scene = source("proj", "view", "world", "src")
        kit("transforms", op, "m4v3", scene + viewport + dst, statuses)
        kit("transforms", op, "m4v3a", scene + [stride0("src")] + viewport + dst + [stride0("dst"), COUNT],
            statuses)
    operands = [Operand("src1", "m"), Operand("src2", "v", True), Operand("dst", "v", True, output=True)]
    export("transforms", "zonmAffineTransform3DH", "mva", "32f", STRIDED, operands,
           blocks(operands, "32f") + [COUNT], ("zonStsDivByZero",))


def build_manifest():
    EXPORTS.append(Export("zonmGetLibVersion", "version", "zonmGetLibVersion", "", "", "", [], [], [],
                          returns="const ZonVersionRecord *"))
    sum_families()
    movement_families()
    product_families()
    vector_product_families()
    reduction_families()
    solver_families()
    eigen_families()
    fixed_size_kit()
    for ordinal, e in enumerate(sorted(EXPORTS, key=lambda e: e.name.encode()), 1):
        e.ordinal = ordinal


build_manifest()
