# SPDX-License-Identifier: Apache-2.0
"""zonm.json: the interface for programs, with all that a generator of bindings needs.

The exports and their checks come from the manifest. Stated here are the shapes of operands, the
lengths of plain pointers and the limits of the families. zonm.schema.json describes the result.
"""

import json

from families import FAMILIES, STATUSES
from manifest import ELEMENT_TYPES, EXPORTS, STATUS_OF_STEP, is_array

ELEMENT_SIZES = {"32f": 4, "64f": 8}

# Name, type in C, and the offset where pointers have 4 and 8 bytes.
VERSION_RECORD = [
    ("major", "int32_t", 0, 0),
    ("minor", "int32_t", 4, 4),
    ("patch", "int32_t", 8, 8),
    ("revision", "int32_t", 12, 12),
    ("targetTag", "char[4]", 16, 16),
    ("versionName", "const char *", 20, 24),
    ("versionText", "const char *", 24, 32),
    ("buildDate", "const char *", 28, 40),
]


# These call the platform's sin and cos.
ROUNDED_BY_THE_PLATFORM = {
    "zonmRotationX_m4_32f", "zonmRotationY_m4_32f", "zonmRotationZ_m4_32f", "zonmRotationAxis_v3m4_32f",
    "zonmRotationYawPitchRoll_m4_32f", "zonmPerspectiveFovLH_m4_32f", "zonmPerspectiveFovRH_m4_32f",
}

# Shapes and lengths ---------------------------------------------------------------------------


def matrix(rows, columns):
    return {"rows": rows, "columns": columns}


def shape(e, o):
    """The operand as it lies in memory, in terms of the size arguments."""
    names = {a.name for a in e.arguments if a.role == "size"}
    if o.kind == "c":
        return {}
    if e.operation == "zonmAffineTransform3DH":
        return matrix("4", "4") if o.kind == "m" else {"len": "3"}
    if e.family == "cross_product":
        return {"len": "3"}
    if e.family == "matrix_product" and o.output:
        a, b = e.operands[:2]
        return matrix("src1Width" if a.transposed else "src1Height",
                      "src2Height" if b.transposed else "src2Width")
    if e.family in ("matrix_vector_product", "gaxpy") and o.output:
        return {"len": "src1Width" if e.operands[0].transposed else "src1Height"}
    if e.family == "transpose" and o.output:
        return matrix("width", "height")
    if e.family == "trace":
        return matrix("width", "width")
    if e.family == "qr_back_subst" and o.kind == "v":
        return {"len": "width" if o.output else "height"}
    if f"{o.name}Width" in names:
        return matrix(f"{o.name}Height", f"{o.name}Width")
    if f"{o.name}Len" in names:
        return {"len": f"{o.name}Len"}
    if "size" in names:
        return matrix("size", "size") if o.kind == "m" else {"len": "size"}
    if o.kind == "v":
        return {"len": "len"}
    return matrix("width", "height") if o.transposed else matrix("height", "width")


def buffer_bytes(e):
    """(expression, text) of the scratch memory."""
    element = ELEMENT_SIZES[e.element]
    n = "n = size, s = size of an element in bytes: "
    return {
        "qr_decomp": (f"height*{element}", "height elements of the element type"),
        "qr_back_subst": (f"height*{element}", "height elements of the element type"),
        "det": (f"size*size*{element} + 4*size", n + "n*n*s + 4*n"),
        "invert": (f"size*size*{element} + 4*size", n + "n*n*s + 4*n"),
        "eigen_sym": (f"size*size*{element}", n + "n*n*s"),
        "eigen_values": (f"size*(size + 5)*{element}",
                         n + f"n*(n + 5)*s, as zonmEigenValuesGetBufSize_{e.element} tells"),
        "eigen_vectors": (f"size*(3*size + 5)*{element}",
                          n + f"n*(3*n + 5)*s, as zonmEigenValuesVectorsGetBufSize_{e.element} tells"),
    }[e.family]


def kit_length(e, a):
    """Elements of one object behind a pointer of the graphics kit."""
    digits = [int(c) for c in e.group if c.isdigit()]
    vector = digits[-1] if "v" in e.group else 0  # v3, m4v3a
    if e.family == "fixed_vectors":
        single = e.operation in ("zonmDotProduct", "zonmLen", "zonmLenSqr") or \
            (e.operation, e.group) == ("zonmCrossProduct", "v2")
        return (1, "one number") if a.name == "dst" and single else (vector, "a vector")
    if a.name in ("eye", "at", "up", "axis"):
        return 3, "a vector"
    if a.name == "det" or (a.name == "dst" and e.operation in ("zonmDet", "zonmIsIdentity")):
        return 1, "one number"
    if e.family == "transforms" and a.name in ("src2", "src", "dst"):
        return (4 if a.name == "dst" and e.operation == "zonmAffineTransform" else vector), "a vector"
    return 16, "a 4x4 matrix, row after row"


def length(e, a):
    """What a pointer has to point to that belongs to no described operand."""
    many = is_array(e.group)
    if a.role == "scratch":
        expression, text = buffer_bytes(e)
        return {"unit": "bytes", "expression": expression, "text": text + "; the same for any count"}
    if e.family in ("fixed_vectors", "fixed_matrices", "cameras", "transforms"):
        number, text = kit_length(e, a)
        stride = f"{a.name}Stride0"
        if any(other.name == stride for other in e.arguments):
            text += f"; that of object k lies k*{stride} bytes further on"
        return {"unit": "elements", "expression": str(number), "text": text}
    per_object, text = {
        "pivots": ("size", "row numbers"),
        "dstValues": ("size", "eigenvalues"),
        "dstValuesRe": ("size", "real parts"),
        "dstValuesIm": ("size", "imaginary parts"),
        "bufSize": ("1", "a number of bytes"),
        "dst": ("1", "one number"),
    }[a.name]
    if e.family == "extract":
        per_object, text = ("len", "a vector") if "v" in e.group else ("width*height", "a matrix, row after row")
    if e.family == "lu_back_subst":
        many = e.group == "mava"
    if not many:
        return {"unit": "elements", "expression": per_object, "text": text}
    return {"unit": "elements", "expression": "count" if per_object == "1" else f"{per_object}*count",
            "text": text + " per object, back to back"}


# Limits ---------------------------------------------------------------------------------------

EPSILON = {"32f": 2.0**-23, "64f": 2.0**-52}
TINY = {"32f": 2.0**-125, "64f": 2.0**-1021}
SMALLEST = {"32f": 2.0**-126, "64f": 2.0**-1022}
VOLUME = {element: f"2*size*size*size*{value!r}" for element, value in SMALLEST.items()}
STRAIGHT, GENERAL = "size >= 3 && size <= 6", "size < 3 || size > 6"
WRAPS = "the factor 2*size*size*size is formed in 32 bits and wraps; the product is a double"


def limit(quantity, test, value, outcome, when="", forms="", note=""):
    if not isinstance(value, dict):
        value = {"32f": value, "64f": value}
    return {"quantity": quantity, "fails": test, "value": value, "outcome": outcome} | {
        key: text for key, text in (("when", when), ("forms", forms), ("note", note)) if text}


# In each family the first entry counts whose `forms` (a regular expression for the whole name) and
# `when` apply, for each quantity. Limits are absolute, never scaled by the matrix.
LIMITS = {
    "lu_decomp": [
        limit("magnitude of a pivot", "<", TINY, "zonStsSingular", STRAIGHT),
        limit("magnitude of a pivot", "<=", EPSILON, "zonStsSingular", GENERAL),
    ],
    "cholesky_decomp": [
        limit("pivot", "<=", 2.0**-23, "zonStsNotPositiveDefinite", "size == 3", ".*_P"),
        limit("pivot", "<=", 2.0**-52, "zonStsNotPositiveDefinite",
              "(srcStride2 != 8 || dstStride2 != 8) && (size < 3 || size > 5)", "zonmCholeskyDecomp_ma_64f"),
        limit("pivot", "<=", 0.0, "zonStsNotPositiveDefinite"),
    ],
    "qr_decomp": [
        limit("sum of squares of a column from the diagonal down", "<", EPSILON, "zonStsDivByZero"),
    ],
    "det": [
        limit("magnitude of a pivot but the last", "<", VOLUME, "the result is 0", GENERAL, note=WRAPS),
        limit("magnitude of the last pivot", "<=", VOLUME, "the result is 0", GENERAL,
              note=WRAPS + "; a NaN fails as well"),
    ],
    "invert": [
        limit("magnitude of the element", "<=", VOLUME, "zonStsSingular", "size == 1",
              note="a NaN fails as well"),
        limit("magnitude of the determinant", "<", VOLUME, "zonStsSingular", STRAIGHT, note=WRAPS),
        limit("magnitude of a pivot", "<", VOLUME, "zonStsSingular", GENERAL, note=WRAPS),
        limit("magnitude of the determinant", "<=", VOLUME, "zonStsSingular", GENERAL, note=WRAPS),
    ],
    "eigen_sym": [
        limit("magnitude of the determinant", "<=", 2.0**-52, "zonStsSingular",
              "size == 2 && srcStride2 == 4", "zonmEigenValuesSym_ma_32f"),
        limit("magnitude of the determinant", "<=", EPSILON, "zonStsSingular", "size == 2"),
        limit("magnitude of the product of the values", "<=", 2.0**-23, "zonStsSingular", "size > 2",
              "zonmEigenValuesVectorsSym_ma_.*"),
        limit("magnitude of the product of the values", "<=", EPSILON, "zonStsSingular", "size > 2",
              note="some values count more than once"),
        limit("sweeps for one value", ">=", 30.0, "zonStsNoConvergence"),
    ],
    "eigen_values": [
        limit("magnitude of a subdiagonal element", "<=", EPSILON, "counts as zero"),
        limit("sweeps in all", ">=", {"32f": "30*size", "64f": "30*size"}, "zonStsNoConvergence"),
    ],
    "eigen_vectors": [
        limit("sweeps in all", ">=", {"32f": "30*size", "64f": "30*size"}, "zonStsNoConvergence"),
    ],
    "fixed_matrices": [
        limit("largest magnitude left in a row", "<", {"32f": 1.430511474609375e-06}, "zonStsSingular",
              forms="zonmInvert_m4_32f"),
    ],
    "transforms": [
        limit("largest magnitude left in a row of world*view*proj", "<", {"32f": 1.430511474609375e-06},
              "zonStsSingular", forms="zonmUnproject_.*"),
        limit("magnitude of the fourth component", "<=", {"32f": 2.0**-126}, "zonStsDivByZero",
              forms="zonmAffineTransform3DH_mva_32f", note="a NaN fails as well"),
    ],
}


# The document ---------------------------------------------------------------------------------


def size_roles(e):
    """Size argument -> the extents of operands that it states."""
    sized = {}
    for o in e.operands:
        for extent, name in shape(e, o).items():
            sized.setdefault(name, []).append({"operand": o.name, "extent": extent})
    return sized


def role_of_size(name):
    for role in ("width", "height", "len"):
        if name.lower().endswith(role):
            return role
    return "order"


def argument(e, a, sized):
    entry = {"name": a.name, "type": a.type.strip(), "role": a.role, "operand": a.operand}
    described = {o.name for o in e.operands}
    if a.role == "size":
        entry |= {"role": role_of_size(a.name), "sizes": sized.get(a.name, [])}
    elif a.role == "scratch" or (a.role == "pointer" and a.operand not in described):
        entry["length"] = length(e, a)
        if a.name == "det":
            entry["nullable"] = True
    return entry


def export(e, shape_condition):
    sized = size_roles(e)
    return {
        "ordinal": e.ordinal, "name": e.name, "family": e.family, "operation": e.operation,
        "group": e.group, "element": e.element, "description": e.description,
        "returns": e.returns.strip(" *"),
        "operands": [{"name": o.name, "kind": {"m": "matrix", "v": "vector", "c": "constant"}[o.kind],
                      "array": o.array, "transposed": o.transposed,
                      "description": o.description or "strided", "output": o.output, "shape": shape(e, o)}
                     for o in e.operands],
        "arguments": [argument(e, a, sized) for a in e.arguments],
        "checks": [{"step": step, "arguments": names, "status": STATUS_OF_STEP[step]}
                   | ({"condition": shape_condition(e)} if step == "shapes" else {})
                   for step, names in e.checks],
        "statuses": e.statuses if e.returns == "ZonStatus" else [],
    }


def families():
    subsystem = ""
    for key, family in FAMILIES.items():
        subsystem = family.subsystem or subsystem
        yield {"key": key, "title": family.title, "subsystem": subsystem,
               "limits": LIMITS.get(key, [])}


def document(version, shape_condition):
    """One line for each status, family and export."""
    def lines(items):
        return "[\n" + ",\n".join(json.dumps(x, separators=(",", ":")) for x in items) + "\n]"

    record = [{"name": name, "type": ctype, "offset32": o32, "offset64": o64}
              for name, ctype, o32, o64 in VERSION_RECORD]
    elements = {key: {"type": ELEMENT_TYPES[key], "size": size} for key, size in ELEMENT_SIZES.items()}
    statuses = [{"name": name, "value": value, "meaning": meaning} for name, value, meaning in STATUSES]
    exports = [export(e, shape_condition) for e in sorted(EXPORTS, key=lambda e: e.ordinal)]
    return (f'{{"$schema": "zonm.schema.json", "version": "{version}",\n'
            f'"elements": {json.dumps(elements)},\n"statuses": {lines(statuses)},\n'
            f'"versionRecord": {lines(record)},\n"families": {lines(families())},\n'
            f'"exports": {lines(exports)}}}\n')
