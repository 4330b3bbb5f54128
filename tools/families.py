# SPDX-License-Identifier: Apache-2.0
"""The families as the header presents them, and the functions that they are bound to."""

from dataclasses import dataclass, field

from manifest import EXPORTS


@dataclass
class Family:
    title: str
    text: str
    subsystem: str = ""  # set where a new subsystem begins


@dataclass
class Built:
    folder: str
    functions: dict = field(default_factory=dict)  # operation -> C++ function that its entries call


STATUSES = [
    ("zonStsOk", 0, "success"),
    ("zonStsBlockSingular", -2, "a 2x2 system of the eigenvectors broke down"),
    ("zonStsBadSize", -6, "a width, height, len or size below 1"),
    ("zonStsNullPointer", -8, "a top-level pointer is null"),
    ("zonStsDivByZero", -10, "a vanishing column in QR or a fourth component"),
    ("zonStsNotPositiveDefinite", -179, "Cholesky met a non-positive pivot"),
    ("zonStsBadStride", -182, "a stride is no positive multiple of the element size"),
    ("zonStsSingular", -195, "a pivot below the singularity limit"),
    ("zonStsBadShift", -202, "a shift is negative or no multiple of the element size"),
    ("zonStsBadCount", -203, "count below 1"),
    ("zonStsShapeMismatch", -204, "operands of sizes that do not match"),
    ("zonStsNoConvergence", -205, "an iteration limit was reached"),
]

# Adding a family: its file under src/<folder>/, its line here, and a run of generate.py.
BUILT = {
    "version": Built("frame"),
    "matrix_sums": Built("elementwise", {"zonmAdd": "addMatrices", "zonmSub": "subtractMatrices"}),
    "vector_sums": Built("elementwise", {"zonmAdd": "addVectors", "zonmSub": "subtractVectors"}),
    "copy": Built("elementwise", {"zonmCopy": "copyObjects"}),
    "extract": Built("elementwise", {"zonmExtract": "extractObjects"}),
    "load_identity": Built("elementwise", {"zonmLoadIdentity": "loadIdentity"}),
    "transpose": Built("elementwise", {"zonmTranspose": "transpose"}),
    "constant_product": Built("products", {"zonmMul": "multiplyByConstant"}),
    "matrix_product": Built("products", {"zonmMul": "multiplyMatrices"}),
    "trace": Built("products", {"zonmTrace": "traces"}),
    "frob_norm": Built("products", {"zonmFrobNorm": "frobeniusNorms"}),
    "dot_product": Built("products", {"zonmDotProduct": "dotProducts"}),
    "l2_norm": Built("products", {"zonmL2Norm": "euclideanNorms"}),
    "cross_product": Built("products", {"zonmCrossProduct": "crossProducts"}),
    "lcomb": Built("products", {"zonmLComb": "combineLinearly"}),
    "saxpy": Built("products", {"zonmSaxpy": "addScaled"}),
    "matrix_vector_product": Built("products", {"zonmMul": "multiplyVectors"}),
    "gaxpy": Built("products", {"zonmGaxpy": "addMatrixVectorProducts"}),
    "lu_decomp": Built("solvers", {"zonmLUDecomp": "luDecompose"}),
    "eigen_sym": Built("eigen", {"zonmEigenValuesSym": "eigenValuesSym",
                                 "zonmEigenValuesVectorsSym": "eigenValuesVectorsSym"}),
    "eigen_values": Built("eigen", {"zonmEigenValues": "eigenValues"}),
    "eigen_vectors": Built("eigen", {"zonmEigenValuesVectors": "bothVectors",
                                     "zonmEigenValuesVectorsRight": "rightVectors",
                                     "zonmEigenValuesVectorsLeft": "leftVectors"}),
    "eigen_buf_size": Built("eigen", {
        "zonmEigenValuesGetBufSize": "eigenValuesBufSize",
        "zonmEigenValuesVectorsGetBufSize": "eigenVectorsBufSize"}),
    "lu_back_subst": Built("solvers", {"zonmLUBackSubst": "luBackSubstitute"}),
    "cholesky_decomp": Built("solvers", {"zonmCholeskyDecomp": "choleskyDecompose"}),
    "cholesky_back_subst": Built("solvers", {"zonmCholeskyBackSubst": "choleskyBackSubstitute"}),
    "qr_decomp": Built("solvers", {"zonmQRDecomp": "qrDecompose"}),
    "qr_back_subst": Built("solvers", {"zonmQRBackSubst": "qrBackSubstitute"}),
    "det": Built("solvers", {"zonmDet": "determinant"}),
    "invert": Built("solvers", {"zonmInvert": "invert"}),
    "fixed_vectors": Built("graphics", {
        "zonmAdd": "addVectors", "zonmSub": "subtractVectors", "zonmMulC": "scaleVector",
        "zonmMin": "minimum", "zonmMax": "maximum",
        "zonmDotProduct": "dotProduct", "zonmCrossProduct": "crossProduct",
        "zonmLenSqr": "squaredLength", "zonmLen": "lengthOf", "zonmNormalize": "normalize",
        "zonmInterpolationLinear": "interpolateLinearly", "zonmBaryCentric": "baryCentric",
        "zonmHermite": "hermite", "zonmInterpolationCatmullRom": "catmullRom"}),
    "fixed_matrices": Built("graphics", {
        "zonmIdentity": "identity", "zonmIsIdentity": "isIdentity", "zonmTranspose": "transposeMatrix4",
        "zonmDet": "determinant", "zonmInvert": "invertMatrix4",
        "zonmMul": "multiplyMatrices4", "zonmMulTranspose": "multiplyTransposed",
        "zonmScaling": "scaling", "zonmTranslation": "translation",
        "zonmRotationX": "rotationX", "zonmRotationY": "rotationY", "zonmRotationZ": "rotationZ",
        "zonmRotationAxis": "rotationAxis", "zonmRotationYawPitchRoll": "rotationYawPitchRoll"}),
    "cameras": Built("graphics", {
        f"{operation}{hand}": f"{function}<Hand::{side}>"
        for hand, side in (("LH", "left"), ("RH", "right"))
        for operation, function in (
            ("zonmLookAt", "lookAt"),
            ("zonmOrtho", "orthographic"), ("zonmOrthoOffCenter", "orthographicOffCenter"),
            ("zonmPerspective", "perspective"), ("zonmPerspectiveOffCenter", "perspectiveOffCenter"),
            ("zonmPerspectiveFov", "perspectiveFov"))}),
    "transforms": Built("graphics", {
        "zonmAffineTransform": "transform", "zonmAffineTransformCoord": "transformPoint",
        "zonmAffineTransformNormal": "transformNormal",
        "zonmProject": "project", "zonmUnproject": "unproject",
        "zonmAffineTransform3DH": "transformColumns"}),
}

# The families in the order of the header. `subsystem` opens a new section; the text stands in front
# of the family's prototypes and tells a caller all that the prototypes cannot.
FAMILIES = {
    "version": Family("Library version: zonmGetLibVersion", """
    Returns a pointer to the one version record, the same on every call. It cannot fail. The
    record is a constant: do not free it. revision is the number in versionText. All its values
    belong to the interface and are the same in every build of this version: buildDate and
    revision do not tell when, or from which sources, a library was compiled.
    """, "Frame"),

    # Element-wise arithmetic and data movement ------------------------------------------------

    "matrix_sums": Family("Matrix sums: zonmAdd, zonmSub on two matrices", """
    zonmAdd: dst[k](i, j) = src1[k](i, j) + src2[k](i, j)
    zonmSub: dst[k](i, j) = src1[k](i, j) - src2[k](i, j), also where src1 is the single one

    width, height: columns and rows of dst and of both sources as used. A t source lies in memory
    with width rows and height columns and is described so; its _P entry (i, j) is T[j*height + i].
    zonmAdd has no mt, mma, mta, tma, tta and mata: swap the operands.
    Bits: one operation and one rounding per element, the same in every form and at every size.
    In place: dst may be a source that is not t and has the same layout. Any other overlap,
    with a t source or with the single source of an array call, gives a result that depends on
    form and size.
    Checks: standard orders, but zonmAdd_mam, zonmSub_mam and zonmSub_mma without suffix judge the
    strides before the sizes. Nothing can fail after the checks.
    """, "Element-wise arithmetic and data movement"),

    "vector_sums": Family("Vector sums: zonmAdd, zonmSub on vectors and constants", """
    two vectors:    dst[k](i) = src1[k](i) + src2[k](i), or with -
    vc, vac:        dst[k](i) = src[k](i) + val, or with -
    vca, vaca:      dst[k](i) = src[k](i) + vals[k], or with -
    cv, cva:        dst[k](i) = val - src[k](i)          zonmSub only
    cav, cava:      dst[k](i) = vals[k] - src[k](i)      zonmSub only

    The vector's block stands before the constant's in every list, also in cv, cva, cav, cava.
    Constant k is at vals + k*valsStride0 without suffix and with _P, where vals is no table, and
    at vals[k] + valsShift with _L. The constants themselves are not judged.
    Bits: one operation and one rounding per element, the same in every form and at every size.
    In place: dst may be a source of the same layout. Any other overlap goes by the order k, then i,
    where a constant is read once per object, and at len 3 to 6 the single vector of zonmAdd_vav,
    zonmSub_vav and zonmSub_vva_32f without suffix once per call.
    Checks: standard orders, but the vav groups judge count late: without suffix and with _P
    behind the strides, with _L last; zonmAdd_vca_64f_P judges shifts before strides.
    Nothing can fail after the checks.
    """),

    "copy": Family("Copy between descriptions: zonmCopy", """
    dst[k](i, j) = src[k](i, j), or for va dst[k](i) = src[k](i)

    Two letters close the name, the description of src and that of dst: S strided, L objects,
    P elements. Both operands are arrays, each with the block of its own letter; SL reads strided
    memory and writes through a table of objects.
    Elements move bit by bit, signalling NaNs too.
    Checks: pointers, sizes, count, strides, shifts; the Stride0 arguments come last and only if
    count is above 1, so that one object may pass any value. zonmCopy_va_32f_SP and
    zonmCopy_va_32f_LP judge shifts before strides. Nothing can fail after the checks.
    Keep dst apart from src.
    """),

    "extract": Family("Copy into dense memory: zonmExtract", """
    matrices: dst[k*width*height + i*width + j] = src[k](i, j)
    vectors:  dst[k*len + i] = src[k](i)

    dst is a plain pointer to count objects without gaps, row after row. With t and ta the result
    is the transpose: width and height are those of the result, and src is stored with width rows
    and height columns.
    m and ma with _P take width*height entries of the table as one run and form that number in 32
    bits: they do nothing, with zonStsOk, if it wraps below 1.
    Elements move bit by bit, signalling NaNs too.
    Checks: arrays judge pointers, sizes, count, shifts, strides; m and t with _P, and
    zonmExtract_v_64f_P, judge sizes before pointers; the others keep the standard orders.
    Nothing can fail after the checks. Keep dst apart from src.
    """),

    "load_identity": Family("Identity matrices: zonmLoadIdentity", """
    dst[k](i, j) = 1 if i == j, otherwise 0

    width and height may differ: the ones run down the diagonal as far as it goes. Rows are written
    one after the other, the zeros of each before its one.
    Checks: pointers, sizes, count, strides, shifts; zonmLoadIdentity_ma_32f_P judges shifts
    before count. dstStride0 comes last and only if count is above 1.
    Nothing can fail after the checks.
    """),

    "transpose": Family("Transpose: zonmTranspose", """
    dst[k](j, i) = src[k](i, j)

    width and height are columns and rows of src and stand behind its block; dst has width rows
    and height columns. A _P table of dst is in the row order of dst: entry j*height + i.
    Elements move bit by bit, signalling NaNs too.
    dst must be memory of its own: in place this is no transposition.
    Checks: standard orders. Nothing can fail after them.
    """),

    # Products and reductions ------------------------------------------------------------------

    "matrix_product": Family("Matrix product: zonmMul on two matrices", """
    dst[k](i, j) = sum over p of A[k](i, p) * B[k](p, j), p ascending from 0
    A is src1 or its transpose (t), B is src2 or its transpose

    Each source is followed by its own width and height, those of the matrix in memory, also for
    t. dst has the rows of A and the columns of B:
        group                  inner sizes that must agree    rows of dst    columns of dst
        mm mam mma mama        src1Width  == src2Height       src1Height     src2Width
        mt mat mta mata        src1Width  == src2Width        src1Height     src2Height
        tm tam tma tama        src1Height == src2Height       src1Width      src2Width
        tt tat tta tata        src1Height == src2Width        src1Width      src2Height
    _P tables are in row order: a source's with its own width as pitch, dst's with its columns.
    Checks: standard orders with the shapes (zonStsShapeMismatch) right behind the sizes.
    Nothing can fail after them.
    Bits: the sum is one chain in ascending p in every form; 64f results differ between forms in
    nothing but the sign of a zero. A 32f sum is kept in double and rounded at the store; with _P
    outside the square sizes 3 to 6 it is rounded after every term.
    Two exceptions: zonmMul_mm_32f_P and zonmMul_tt_64f_P take any sizes 1 to 3 whose bitwise OR
    is 3 for 3x3 and reach for nine elements of each table. With such sizes use the other forms.
    dst must not overlap a source.
    """, "Products and reductions"),

    "matrix_vector_product": Family("Matrix-vector product: zonmMul on a matrix and a vector", """
    dst[k](i) = sum over p of A[k](i, p) * src2[k](p), p ascending from 0
    A is src1 or its transpose (t)

    src1Width and src1Height are those of the matrix in memory. Without t, src2Len must be
    src1Width and dst has src1Height elements; with t, src2Len must be src1Height and dst has
    src1Width elements.
    Checks: standard orders with the shapes (zonStsShapeMismatch) right behind the sizes.
    Nothing can fail after them.
    Bits: one chain in ascending p. A 32f sum is kept in double and rounded at the store; with _P
    outside the square sizes 3 to 6 it is rounded after every term.
    dst must not overlap a source.
    """),

    "gaxpy": Family("Matrix-vector product plus vector: zonmGaxpy", """
    dst[k](i) = sum over p of src1(i, p) * src2[k](p) + src3[k](i)

    The matrix is single and plain. mv: one src2, one src3; mva: arrays of both; mvav: an array of
    src2 beside one src3, which has neither Stride0 nor, with _L, a shift.
    src2Len must be src1Width and src3Len must be src1Height, also the length of dst.
    Checks: standard orders with the shapes (zonStsShapeMismatch) right behind the sizes.
    Nothing can fail after them.
    Bits: at the square sizes 3 to 6 a row is one expression, rounded once, whose terms are added
    in an order fixed by group, size and row. At all other sizes the product is stored, which
    rounds it (a 32f sum with _P after every term), and src3(i) is added to what was stored.
    dst must not overlap a source; dst equal to src3 adds the product to itself.
    """),

    "constant_product": Family("Products with constants: zonmMul on matrices and vectors", """
    mc, tc, mac, tac:  dst[k](i, j) = src[k](i, j) * val, or its transpose (t)
    vc, vac:           dst[k](i) = src[k](i) * val
    vca, vaca:         dst[k](i) = src[k](i) * vals[k]

    width, height: of dst and of src as used, so that a t source is stored with width rows and
    height columns. Constant k is at vals + k*valsStride0 without suffix and with _P, where vals is
    no table, and at vals[k] + valsShift with _L. The constants themselves are not judged, and 0 is
    no special case.
    Bits: one multiplication and one rounding per element, the same in every form.
    In place: dst may be a plain source of the same layout; not with tc and tac, and not with vca.
    Checks: standard orders. Nothing can fail after them.
    """),

    "dot_product": Family("Scalar product: zonmDotProduct", """
    dst[k] = sum over i of src1[k](i) * src2[k](i)

    dst is a plain pointer to count numbers, in every description.
    Bits: a 32f sum is kept in double and rounded at the store. The terms are added in ascending
    order; at len 3 to 6 the order is fixed by group, description and whether the elements lie side
    by side, and may differ, so that two forms can differ in the last bits.
    Checks: standard orders. Nothing can fail after them; nothing guards against overflow.
    """),

    "cross_product": Family("Vector product: zonmCrossProduct", """
    dst(0) = src1(1)*src2(2) - src1(2)*src2(1)
    dst(1) = src1(2)*src2(0) - src1(0)*src2(2)
    dst(2) = src1(0)*src2(1) - src1(1)*src2(0)

    All vectors have three elements and there is no len.
    Bits: the same in every form; a 32f element is rounded once.
    Checks: pointers, count, strides, shifts, as far as present; but vav judges count behind the
    strides, with _L last. Nothing can fail after them.
    dst must not overlap a source.
    """),

    "lcomb": Family("Linear combination: zonmLComb", """
    dst[k](i) = src1[k](i) * val1 + src2[k](i) * val2

    val1 stands behind the block of src1, val2 behind that of src2; neither is judged.
    Bits: the same in every form; a 32f element is rounded once.
    In place: dst may be a source of the same layout.
    Checks: standard orders. Nothing can fail after them.
    """),

    "saxpy": Family("Scaled vector plus vector: zonmSaxpy", """
    dst[k](i) = src1[k](i) * val + src2[k](i)

    val stands behind the block of src1 and is not judged. In vav the array is
    scaled and the single vector added to each; in vva it is the other way round.
    Bits: the same in every form; a 32f element is rounded once.
    In place: dst may be a source of the same layout.
    Checks: standard orders. Nothing can fail after them.
    """),

    "l2_norm": Family("Euclidean length: zonmL2Norm", """
    dst[k] = sqrt(sum over i of src[k](i)^2)

    dst is a plain pointer to count numbers, in every description. The squares are not scaled:
    64f elements above about 1e154 give infinity. A 32f sum and its root are double until the store.
    Bits: ascending order; at len 4 to 6 the last square comes second, with few exceptions for the
    first vector of an array.
    Checks: standard orders. Nothing can fail after them.
    """),

    "trace": Family("Trace: zonmTrace", """
    dst[k] = sum over i below width of src[k](i, i)

    The matrix is square, of order width; a _P table has width*width entries. dst is a plain
    pointer to count numbers. Only the diagonal is read, but all strides are judged.
    Bits: a 32f sum is kept in double. At width 3 to 6 the order is ascending with _P and a
    different fixed one otherwise; at other sizes ascending from 0.
    Checks: standard orders. Nothing can fail after them.
    """),

    "frob_norm": Family("Frobenius norm: zonmFrobNorm", """
    dst[k] = sqrt(sum over i and j of src[k](i, j)^2)

    dst is a plain pointer to count numbers, in every description. The squares are not scaled
    against overflow. A 32f sum and its root are double until the store.
    Bits: row order; _P adds the squares in pairs of neighbouring table entries, and arrays have an
    order of their own at 3x3.
    Checks: standard orders. Nothing can fail after them.
    """),

    # Linear systems ---------------------------------------------------------------------------

    "lu_decomp": Family("LU decomposition with row pivoting: zonmLUDecomp", """
    src[pivots[i]](j) = sum over p <= i of L(i, p) * U(p, j),  L with a unit diagonal

    size is the order n. Rows are not moved. pivots receives n row numbers per matrix, those of
    matrix k from entry k*n on, in every description. With r = pivots[i], dst(r, j) holds L(i, j)
    for j < i and U(i, j) for j >= i. Rows (1, 2), (3, 4) give pivots 1, 0 and dst rows
    (1/3, 2/3), (3, 4).
    The pivot is the largest magnitude in its column; of equal ones the first in pivot order.
    Limits, absolute: a pivot fails
        size 3 to 6       strictly below 2^-125 (32f), 2^-1021 (64f)
        other sizes       at or below 2^-23 (32f), 2^-52 (64f)
    so that a matrix may pass at size 3 whose like fails at size 2.
    Checks: standard orders. After them zonStsSingular, at the first matrix that fails: those
    before it are complete, those behind it untouched, in dst and in pivots. The failing one, at
    step p: at size 3 to 6 the rows pivots[0] to pivots[p-1] of dst are final, the others as they
    were, and pivots holds the exchange of step p; at other sizes dst is src with the steps before
    p applied, and pivots holds the exchanges of those.
    Bits: multipliers are products with 1/pivot; the last one at size 3 to 6 is a quotient.
    A NaN is no failure and spreads.
    In place: dst may be src with the same layout. Beyond that, matrices are taken one after the
    other: where dst or pivots meet the src of a later matrix, that is read as it has become. A
    matrix of size 3 to 6 is read whole before its own pivots and dst are written; at other sizes
    its pivots are set first, then it is copied to dst row by row and reduced there. dst and pivots
    do not meet.
    All count matrices of src must be readable, also those behind one that fails.
    """, "Linear systems"),

    "lu_back_subst": Family("Solution by LU: zonmLUBackSubst", """
    A[k] * dst[k] = src2[k],  src1 and pivots as zonmLUDecomp left them for A

    mv: one system; mva: one matrix, many right-hand sides; mava: a matrix for each. pivots has
    size entries for mv and mva, size per matrix for mava. src2 is in the row order of A.
    Checks: standard orders. pivots is not judged: its entries must be a permutation. Nothing can
    fail after them; a zero on the diagonal of U gives infinities or NaNs with zonStsOk.
    Bits: at size 3 to 6 everything stays in double until dst is written; mva multiplies there by
    the reciprocals of the diagonal, which it forms once. At other sizes each dst(i) is rounded when
    it is stored, and every form divides.
    In place: dst may be src2 at size 3 to 6 only. Beyond that, systems are taken one after the
    other: where dst meets src1, src2 or pivots of a later one, those are read as they have become;
    the matrix and the pivots of mva at size 3 to 6 are read once, before the first. A system of size
    3 to 6 is read whole before its dst is written.
    """),

    "cholesky_decomp": Family("Cholesky decomposition: zonmCholeskyDecomp", """
    src = L * transpose(L),  L lower triangular

    size is the order. Only the lower triangle of src is read, and only that of dst is written:
    L(i, j) below the diagonal and the reciprocal 1/L(i, i) on it. Rows (4, 2), (2, 5) give
    dst(0, 0) = 0.5, dst(1, 0) = 1, dst(1, 1) = 0.5; dst(0, 1) keeps what it held.
    Limits, absolute: a pivot fails at or below 0, but
        _P, size 3, both types                                      2^-23
        zonmCholeskyDecomp_ma_64f, a Stride2 other than 8,
        size 6 and all sizes outside 3 to 6                         2^-52
    Checks: standard orders. After them zonStsNotPositiveDefinite, at the first matrix that fails:
    those before it are complete, those behind it untouched. Failing at row i it leaves the rows
    above i final, (i, j) for j < i written and the rest untouched; with _P at size 3 a failure at
    row 0 or 1 leaves all of dst untouched, one at row 2 all of that row. A NaN is no failure and
    spreads.
    Bits: the same in every form, products subtracted in ascending order. A 32f element is rounded
    when it is stored, and later rows use what is stored.
    In place: dst may be src with the same layout; the upper triangle stays. Beyond that, matrices
    are taken one after the other: where dst meets the src of a later matrix, that is read as it has
    become, and where elements of dst share an address the last store remains. A matrix of size 3 to
    6 is read whole before its dst is written; other sizes work in dst, element by element.
    All count matrices of src must be readable, also those behind one that fails.
    """),

    "cholesky_back_subst": Family("Solution by Cholesky: zonmCholeskyBackSubst", """
    A[k] * dst[k] = src2[k],  src1 as zonmCholeskyDecomp left it for A, reciprocal diagonal included

    mv: one system; mva: one matrix, many right-hand sides; mava: a matrix for each. The upper
    triangle of src1 is not read. There is no division and no test of the diagonal.
    Checks: standard orders, but mva with _L judges pointers, strides, shifts, size, count.
    Nothing can fail after them.
    Bits: the same in every form. At size 3 to 6 nothing is rounded to the element type before the
    final store; at other sizes each dst(i) is rounded when it is stored.
    In place: dst may be src2 with the same layout. Beyond that, systems are taken one after the
    other: where dst meets src1 or src2 of a later one, those are read as they have become; the
    matrix of mva at size 3 to 6 is read once, before the first. A system of size 3 to 6 is read
    whole before its dst is written; other sizes work in dst, element by element.
    """),

    "qr_decomp": Family("QR decomposition by reflections: zonmQRDecomp", """
    src = Q * R,  height >= width

    dst(i, j) holds R(i, j) for i <= j. Below the diagonal, column p holds the components p+1 and
    up of reflection vector v(p), whose component p is 1 and not stored; reflection p is
    I - 2*v*transpose(v)/(transpose(v)*v). A square matrix has none for its last column.
    A reflection gives R(p, p) the sign opposite to the element that it replaces, plus for zero.
    buffer: height elements of the element type, for every form; an array reuses it.
    Limit, absolute: a column fails when the sum of squares from its diagonal down is strictly below
    2^-23 (32f), 2^-52 (64f).
    Checks: standard orders, then zonStsShapeMismatch for width > height as the last step. After
    them zonStsDivByZero, at the first matrix that fails: those before it are complete, those
    behind it untouched, and its dst is src with the reflections so far applied. NaN passes.
    Bits: the same in every form, sums formed in ascending order of the rows.
    In place: dst may be src with the same layout. Beyond that, matrices are taken one after the
    other: where dst meets the src of a later matrix, that is read as it has become. The elements of
    one dst must not share an address.
    All count matrices of src must be readable, also those behind one that fails.
    """),

    "qr_back_subst": Family("Solution by QR: zonmQRBackSubst", """
    dst[k] solves A[k] * x = src2[k], or minimises |A[k] * x - src2[k]| for height > width;
    src1 as zonmQRDecomp left it for A

    width, height: of A. src2 has height elements, dst has width. mv: one system; mva: one matrix,
    many right-hand sides; mava: a matrix for each. The residual is not reported.
    buffer: height elements of the element type, for every form; an array reuses it.
    Checks: standard orders, then zonStsShapeMismatch for width > height as the last step. Nothing
    can fail after them; a zero on the diagonal of R gives infinities or NaNs with zonStsOk.
    Bits: the same in every form. At the square sizes 3 to 6 nothing is rounded to the element type
    before the final store, and the buffer is not touched.
    In place: dst may be src2 with the same layout. Beyond that, systems are taken one after the
    other: where dst meets src1 or src2 of a later one, those are read as they have become; the
    matrix of mva at the square sizes 3 to 6 is read once, before the first. A system of these sizes
    is read whole before its dst is written; others read src2 whole, and then the triangle between
    one store to dst and the next.
    """),

    "det": Family("Determinant: zonmDet", """
    dst[k] = det(src[k])

    size is the order n; dst is a plain pointer to count numbers, in every description.
    buffer: n*n*(element size) + 4*n bytes, required at every size; an array reuses it.
    Sizes 3 to 6 use closed formulas without any limit. Other sizes eliminate with row pivoting; a
    pivot below 2*n*n*n times the smallest normal number of the element type makes the result 0.
    (The factor wraps in 32 bits: from n = 1024 on the limit has no meaning.)
    Checks: standard orders. A singular matrix is no failure: the result is 0, or with a formula
    what rounding leaves, and the status zonStsOk. A NaN gives NaN at size 3 to 6, 0 at other sizes.
    Bits: at size 3 to 6 all is double and rounded once. At other sizes the product of the pivots is
    rounded in dst at every step; after a pivot below the limit a single matrix gets +0, one of an
    array its last element times 0, which may be -0 or a NaN.
    """),

    "invert": Family("Inverse: zonmInvert", """
    src[k] * dst[k] = I, each element a cofactor times the reciprocal of the determinant

    size is the order n. From size 7 on the cost grows with the fifth power of n: to solve a system
    use a decomposition.
    buffer: n*n*(element size) + 4*n bytes, required at every size; an array reuses it.
    Limit, absolute: T = 2*n*n*n times the smallest normal number of the element type (the factor
    wraps in 32 bits). Fails when
        size 1            the element is at or below T in magnitude, or a NaN
        size 3 to 6       |det| is strictly below T
        other sizes       a pivot is strictly below T, or |det| at or below T
    At the other sizes a cofactor whose elimination meets a pivot below T counts as T, not as 0:
    off-diagonal zeros come out as tiny numbers.
    Bits: at size 3 to 6 all is double and rounded once; elements at odd i + j are negated products,
    so that a zero there is -0.
    Checks: standard orders. After them zonStsSingular, at the first matrix that fails: those before
    it are complete, its own dst and those behind it untouched. Apart from size 1 a NaN passes.
    In place: dst may be src at size 1 and 3 to 6 only.
    """),

    # Eigenproblems ----------------------------------------------------------------------------

    "eigen_sym": Family("Symmetric eigenproblem: zonmEigenValuesSym, zonmEigenValuesVectorsSym", """
    src = V * diag(dstValues) * transpose(V),  V = dstVectors, column j for value j

    The arguments are src, buffer, dstVectors (of the second function), dstValues, size, count.
    src and dstVectors are size by size, n = size. src is not tested for symmetry: size 2 uses its
    upper triangle, larger sizes all of it. dstValues has n numbers per matrix, back to back in
    every description.
    buffer: n*n elements of the element type, required at every size; an array reuses it.
    Values are in descending order; at size 2 the one of larger magnitude comes first, so a negative
    trace gives ascending order. Vectors have length 1 and no fixed sign.
    Limits, absolute, eps = 2^-23 (32f), 2^-52 (64f): a subdiagonal element counts as zero at or
    below 2*eps, everything else at eps. zonmEigenValuesVectorsSym_ma_64f decides about singularity
    at 2^-23 from size 3 on; a few 32f forms use 2^-52 in part.
    Checks: standard orders; arrays judge pointers, size, count, shifts, strides. After them
        zonStsSingular        the product of the values (size 2: the determinant) is within eps.
                              Size 2: nothing written. From 3 on values and vectors stand, but not
                              in every form in descending order.
        zonStsNoConvergence   30 sweeps for one value did not do; the outputs hold scratch.
    Both end an array: matrices before are complete, those behind untouched. Size 1 cannot fail.
    Some diagonal values count more than once in that product; do not read it as the determinant.
    A NaN raises no zonStsSingular and ends no iteration.
    Bits: single matrices and arrays differ in the last bits; where a limit decides, in the status.
    In place: dstVectors may be src with the same layout, except at size 1. A matrix is read whole
    before its results are written.
    """, "Eigenproblems"),

    "eigen_values": Family("General eigenvalues: zonmEigenValues", """
    det(src[k] - (dstValuesRe[r] + i*dstValuesIm[r]) * I) = 0

    The arguments are src, dstValuesRe, dstValuesIm, size, count, buffer: buffer stands last.
    src is size by size, n = size. dstValuesRe and dstValuesIm have n numbers per matrix, back to
    back in every description, in no sorted order. A real value has imaginary part 0; a complex
    pair is adjacent, the positive imaginary part first.
    buffer: as many bytes as zonmEigenValuesGetBufSize tells; an array reuses it.
    Reduction to Hessenberg form, then double-shift QR, without balancing.
    Limits, absolute: a subdiagonal element counts as zero at or below 2^-23 (32f), 2^-52 (64f),
    whatever the scale of the matrix: scale tiny matrices up first.
    A real pair in a 2x2 block with equal diagonal elements is reported as a complex one:
    rows (1, 2), (2, 1) give 1 + 2i and 1 - 2i.
    Checks: standard orders; arrays judge pointers, size, count, shifts, strides. After them
    zonStsNoConvergence, when 30*n sweeps did not do: the values found so far stand at their places
    at the end, the others are not written. It ends an array: matrices before are complete, those
    behind untouched. A singular matrix is no failure; a NaN ends in that status or in NaN values.
    Bits: the same in every form.
    In place: the values may lie on src. A matrix is read whole before its values are written.
    """),

    "eigen_vectors": Family("General eigenvectors: zonmEigenValuesVectors, Right and Left", """
    Right: column c of dstVectors is x with transpose(x) * src = lambda * transpose(x)
    Left:  column c of dstVectors is y with src * conj(y) = lambda * conj(y), so that for a real
           lambda src * y = lambda * y
    zonmEigenValuesVectors writes both, as dstRight and dstLeft

    The arguments are src, dstVectors or dstRight and dstLeft, dstValuesRe, dstValuesIm, size,
    count, buffer: buffer stands last. src and the vectors are size by size, n = size.
    Right and left are meant of the transpose of src: mind which one you want. Eigenvalue c
    stands in dstValuesRe[c] and dstValuesIm[c], as for zonmEigenValues. For a complex pair c, c+1,
    column c holds the real and column c+1 the imaginary part of the vector of value c; that of
    value c+1 is the conjugate. Vectors have length 1 (a pair over both columns, its largest
    component real) and no fixed sign.
    buffer: as many bytes as zonmEigenValuesVectorsGetBufSize tells; an array reuses it.
    Limits: a subdiagonal element counts as zero beside its diagonal neighbours, at 2^-23 (32f),
    2^-52 (64f) of their magnitudes: the values can differ from those of zonmEigenValues.
    Checks: standard orders; arrays judge pointers, size, count, then without suffix the strides,
    with _L and _P shifts and strides of src, shifts and strides of the outputs. After them
        zonStsNoConvergence   30*n sweeps did not do (the values found so far stand), or a complex
                              right vector vanished, all components within 2^-23 (32f), 2^-52
                              (64f); vectors unwritten
        zonStsBlockSingular   a complex 2x2 system had no element above its limit; vectors unwritten
        zonStsOk              also when a real one had none: vectors unwritten, values complete
    Each of these ends an array at its matrix: those before are complete, those behind untouched.
    Size 1 cannot fail.
    A 2x2 block with equal diagonal elements and off-diagonal ones of equal sign has no rotation
    here: Right and Left use that of the block before, in an array also of the matrix before.
    Bits: the same in every form of a function; the three functions differ, also in signs.
    In place: an output may be src with the same layout, except at size 1. A matrix is read whole
    before its results are written.
    """),

    "eigen_buf_size": Family("Buffer sizes of the general eigenproblem", """
    zonmEigenValuesGetBufSize:         *bufSize = size * (size + 5) * (element size)
    zonmEigenValuesVectorsGetBufSize:  *bufSize = size * (3*size + 5) * (element size)

    In bytes, for one call of any count; the second serves all three eigenvector functions. The
    product wraps at 32 bits. Checks: pointers, size; a fault leaves *bufSize as it was.
    """),

    # Fixed-size graphics kit ------------------------------------------------------------------

    "fixed_vectors": Family("Vectors of 2, 3, 4 elements", """
    zonmAdd, zonmSub, zonmMulC     dst[i] = src1[i] + src2[i], src1[i] - src2[i], src[i] * val
    zonmMin                        dst[i] = src2[i] > src1[i] ? src1[i] : src2[i]
    zonmMax                        dst[i] = src2[i] < src1[i] ? src1[i] : src2[i]
    zonmDotProduct                 *dst = sum of src1[i] * src2[i], ascending
    zonmCrossProduct_v2            *dst = src1[0]*src2[1] - src1[1]*src2[0]
    zonmCrossProduct_v3            the right-handed product
    zonmCrossProduct_v4            the vector normal to src1, src2, src3: e0, e1, e2 give -e3
    zonmLenSqr, zonmLen            *dst = sum of src[i]^2, or its root
    zonmNormalize                  dst[i] = src[i] / length; a zero vector gives NaNs
    zonmInterpolationLinear        dst[i] = src1[i] + (src2[i] - src1[i]) * s
    zonmBaryCentric                src1 + f*(src2 - src1) + g*(src3 - src1)
    zonmHermite                    from pos1 with tangent tan1 (s = 0) to pos2 with tan2 (s = 1)
    zonmInterpolationCatmullRom    from src2 (s = 0) to src3 (s = 1), tangents (src3 - src1)/2 and
                                   (src4 - src2)/2

    The kit is 32f, its objects are dense runs of elements and nothing is checked: a null pointer
    faults, and the status is zonStsOk. Equal elements and NaNs give src2[i] in zonmMin and zonmMax.
    s may lie outside 0 to 1. A formula is evaluated in double and rounded at the store.
    dst may be a source, except in zonmCrossProduct.
    """, "Fixed-size graphics kit"),

    "fixed_matrices": Family("4x4 matrices", """
    An m4 matrix is 16 floats, row after row: m(r, c) = m[4*r + c]. Vectors are rows, left of
    the matrix: translation is row 3, and src1 * src2 applies src1 first. Angles are in radians.

    zonmIdentity, zonmTranspose, zonmDet   as named; zonmDet writes one number
    zonmIsIdentity                         *dst = 1 if src is exactly the identity (-0 is 0), else 0
    zonmMul_mm4x4, zonmMulTranspose        dst = src1 * src2, or the transpose of that
    zonmInvert                             dst = inverse; *det = determinant unless det is null
    zonmScaling, zonmTranslation           factors on the diagonal; tx, ty, tz in row 3
    zonmRotationX, Y, Z                    turn y to z, z to x, x to y
    zonmRotationAxis                       about axis, normalised first; a zero axis gives NaNs
    zonmRotationYawPitchRoll               roll about z first, then pitch about x, then yaw about y

    Row after row, s and c being the sine and the cosine of the angle:
        X   1  0  0  0     Y   c  0 -s  0     Z   c  s  0  0     translation    1  0  0  0
            0  c  s  0         0  1  0  0        -s  c  0  0                    0  1  0  0
            0 -s  c  0         s  0  c  0         0  0  1  0                    0  0  1  0
            0  0  0  1         0  0  0  1         0  0  0  1                   tx ty tz  1
    The five rotations call sin and cos of the platform's math library, in double: their last bit may
    differ between libraries.

    Nothing is checked and the status is zonStsOk, with two exceptions: zonmMul_mm4x4 tests its
    pointers (zonStsNullPointer); zonmInvert returns zonStsSingular when the largest element left in
    a row is below 1.430511474609375e-06, with *det = 0 and dst untouched.
    dst may be src in zonmInvert; keep it apart in the products and in zonmTranspose.
    """),

    "cameras": Family("View and projection matrices", """
    All fill the m4 matrix dst, for row vectors and depth 0 to 1; LH and RH name the hand of the
    coordinate system. Cells not named are 0. d = zFar - zNear; for RH the sign of d is turned.

    zonmLookAt                 columns x, y, z and row 3 (-x.eye, -y.eye, -z.eye, 1), with
                               z = normalized(at - eye), for RH (eye - at),
                               x = normalized(up cross z), y = z cross x
    zonmOrtho                  2/width, 2/height, 1/d on the diagonal, m(3,3) = 1,
                               m(3,2) = -zNear/(zFar - zNear)
    zonmPerspective            2*zNear/width, 2*zNear/height, zFar/d on the diagonal,
                               m(2,3) = 1 (RH: -1), m(3,2) = -zNear*zFar/(zFar - zNear)
    ...OffCenter               the same for left..right, bottom..top in place of width, height;
                               the offsets stand in row 3 (ortho) or row 2 (perspective)
    zonmPerspectiveFov         cot(fovY/2)/aspect and cot(fovY/2) in place of the first two cells;
                               fovY in radians, aspect is width over height

    zonmPerspectiveFov calls sin and cos of the platform's math library, in double: its last bit may
    differ between libraries.
    width and height measure the view volume, in perspective at zNear. Nothing is checked: a
    division by zero leaves infinities or NaNs, and the status is zonStsOk.
    """),

    "transforms": Family("Point and normal transforms", """
    m4 families: row vector times m4 matrix src1, missing elements taken as z = 0 and w = 1
        zonmAffineTransform          four elements at dst, also for 2 and 3 elements at src2
        zonmAffineTransformCoord     divided by the result's w, as many elements as src2
        zonmAffineTransformNormal    upper 2x2 or 3x3 part only: no translation, no division
    zonmProject      src through world, view and proj, then to a viewport at (0, 0), y downwards,
                     width by height, depth zMin to zMax
    zonmUnproject    the way back

    Forms with an a take vectors at src2 + k*src2Stride0 bytes (src + k*srcStride0) and write at
    dst + k*dstStride0. Nothing is checked: strides may be anything, also 0; count below 1 does
    nothing. A zero w leaves infinities or NaNs with zonStsOk. zonmUnproject returns zonStsSingular
    if world*view*proj has no inverse by the rule of zonmInvert_m4: the single form leaves
    normalised coordinates in dst, the array form leaves it untouched.
    In place: the single forms of zonmAffineTransformCoord, zonmProject and zonmUnproject.

    zonmAffineTransform3DH_mva is a general export: column vectors (x, y, z, 1), src1 any strided
    matrix with 4 rows and columns, dst the first three components over the fourth. It judges
    pointers, count, strides. Where the fourth is a NaN or not above the smallest normal float in
    magnitude, the vector's dst gets the largest float three times, and the call goes on and
    returns zonStsDivByZero at the end.
    """),
}

_families = {e.family for e in EXPORTS}
if set(FAMILIES) != _families:
    raise SystemExit(f"manifest.py and FAMILIES disagree: {sorted(set(FAMILIES) ^ _families)}")
