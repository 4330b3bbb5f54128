// SPDX-License-Identifier: Apache-2.0
// The peers, each under one name for both element types.
#pragma once

#include <Eigen/Dense>

#include <string>

#ifdef BENCH_OPENBLAS
#include <cblas.h>
extern "C" {
void sgetrf_(const int *, const int *, float *, const int *, int *, int *);
void dgetrf_(const int *, const int *, double *, const int *, int *, int *);
void sgetrs_(const char *, const int *, const int *, const float *, const int *, const int *,
             float *, const int *, int *);
void dgetrs_(const char *, const int *, const int *, const double *, const int *, const int *,
             double *, const int *, int *);
void spotrf_(const char *, const int *, float *, const int *, int *);
void dpotrf_(const char *, const int *, double *, const int *, int *);
void spotrs_(const char *, const int *, const int *, const float *, const int *, float *,
             const int *, int *);
void dpotrs_(const char *, const int *, const int *, const double *, const int *, double *,
             const int *, int *);
void sgeqrf_(const int *, const int *, float *, const int *, float *, float *, const int *, int *);
void dgeqrf_(const int *, const int *, double *, const int *, double *, double *, const int *,
             int *);
void sormqr_(const char *, const char *, const int *, const int *, const int *, const float *,
             const int *, const float *, float *, const int *, float *, const int *, int *);
void dormqr_(const char *, const char *, const int *, const int *, const int *, const double *,
             const int *, const double *, double *, const int *, double *, const int *, int *);
void sgetri_(const int *, float *, const int *, const int *, float *, const int *, int *);
void dgetri_(const int *, double *, const int *, const int *, double *, const int *, int *);
void ssyev_(const char *, const char *, const int *, float *, const int *, float *, float *,
            const int *, int *);
void dsyev_(const char *, const char *, const int *, double *, const int *, double *, double *,
            const int *, int *);
void sgeev_(const char *, const char *, const int *, float *, const int *, float *, float *,
            float *, const int *, float *, const int *, float *, const int *, int *);
void dgeev_(const char *, const char *, const int *, double *, const int *, double *, double *,
            double *, const int *, double *, const int *, double *, const int *, int *);
}
#endif

#ifdef BENCH_LIBXSMM
#include <libxsmm.h>
#endif

namespace bench
{

// Eigen ----------------------------------------------------------------------------------------

template <class T, int N> using RowMajor = Eigen::Matrix<T, N, N, Eigen::RowMajor>;
template <class T, int N> using ColumnMajor = Eigen::Matrix<T, N, N, Eigen::ColMajor>;
template <class T, int N> using ColumnVector = Eigen::Matrix<T, N, 1>;

// Dense objects one behind the other are an array of Eigen's.
template <class M, class T> M *as(T *data) { return reinterpret_cast<M *>(data); }

using AnyStride = Eigen::Stride<Eigen::Dynamic, Eigen::Dynamic>;
template <class M> using Strided = Eigen::Map<M, Eigen::Unaligned, AnyStride>;

// An object behind run-time strides, as a zonm call without array describes it. Byte strides.
template <class M, class T> Strided<M> strided(T *p, int stride1, int stride2)
{
    return Strided<M>(p, AnyStride(stride1 / int(sizeof(T)), stride2 / int(sizeof(T))));
}

// OpenBLAS -------------------------------------------------------------------------------------

#ifdef BENCH_OPENBLAS
inline void gemm(int n, const float *a, const float *b, float *c)
{
    cblas_sgemm(CblasRowMajor, CblasNoTrans, CblasNoTrans, n, n, n, 1, a, n, b, n, 0, c, n);
}
inline void gemm(int n, const double *a, const double *b, double *c)
{
    cblas_dgemm(CblasRowMajor, CblasNoTrans, CblasNoTrans, n, n, n, 1, a, n, b, n, 0, c, n);
}
// y = A x + beta y, A by rows.
inline void gemv(bool transposed, int n, const float *a, const float *x, float beta, float *y)
{
    cblas_sgemv(CblasRowMajor, transposed ? CblasTrans : CblasNoTrans, n, n, 1, a, n, x, 1, beta, y,
                1);
}
inline void gemv(bool transposed, int n, const double *a, const double *x, double beta, double *y)
{
    cblas_dgemv(CblasRowMajor, transposed ? CblasTrans : CblasNoTrans, n, n, 1, a, n, x, 1, beta, y,
                1);
}
inline float dot(int n, const float *x, const float *y) { return cblas_sdot(n, x, 1, y, 1); }
inline double dot(int n, const double *x, const double *y) { return cblas_ddot(n, x, 1, y, 1); }
inline float nrm2(int n, const float *x) { return cblas_snrm2(n, x, 1); }
inline double nrm2(int n, const double *x) { return cblas_dnrm2(n, x, 1); }
inline void axpy(int n, float a, const float *x, float *y) { cblas_saxpy(n, a, x, 1, y, 1); }
inline void axpy(int n, double a, const double *x, double *y) { cblas_daxpy(n, a, x, 1, y, 1); }
// In place, on a column-major matrix.
inline int getrf(int n, float *a, int *pivots)
{
    int info;
    sgetrf_(&n, &n, a, &n, pivots, &info);
    return info;
}
inline int getrf(int n, double *a, int *pivots)
{
    int info;
    dgetrf_(&n, &n, a, &n, pivots, &info);
    return info;
}
inline int getrs(int n, int vectors, const float *lu, const int *pivots, float *x)
{
    int info;
    sgetrs_("N", &n, &vectors, lu, &n, pivots, x, &n, &info);
    return info;
}
inline int getrs(int n, int vectors, const double *lu, const int *pivots, double *x)
{
    int info;
    dgetrs_("N", &n, &vectors, lu, &n, pivots, x, &n, &info);
    return info;
}
// Cholesky, in place, on a symmetric matrix.
inline int potrf(int n, float *a)
{
    int info;
    spotrf_("L", &n, a, &n, &info);
    return info;
}
inline int potrf(int n, double *a)
{
    int info;
    dpotrf_("L", &n, a, &n, &info);
    return info;
}
inline int potrs(int n, int vectors, const float *l, float *x)
{
    int info;
    spotrs_("L", &n, &vectors, l, &n, x, &n, &info);
    return info;
}
inline int potrs(int n, int vectors, const double *l, double *x)
{
    int info;
    dpotrs_("L", &n, &vectors, l, &n, x, &n, &info);
    return info;
}
// QR, in place, on a column-major matrix of `rows` by `columns`; the solution of transpose(Q) b = R
// x stands in the head of b. The optimal work space of so small a matrix.
inline constexpr int lapackWork = 4096;
inline int geqrf(int rows, int columns, float *a, float *tau)
{
    static float work[lapackWork];
    int info;
    sgeqrf_(&rows, &columns, a, &rows, tau, work, &lapackWork, &info);
    return info;
}
inline int geqrf(int rows, int columns, double *a, double *tau)
{
    static double work[lapackWork];
    int info;
    dgeqrf_(&rows, &columns, a, &rows, tau, work, &lapackWork, &info);
    return info;
}
inline int solveByQR(int rows, int columns, const float *qr, const float *tau, float *b)
{
    static float work[lapackWork];
    const int one = 1;
    int info;
    sormqr_("L", "T", &rows, &one, &columns, qr, &rows, tau, b, &rows, work, &lapackWork, &info);
    cblas_strsv(CblasColMajor, CblasUpper, CblasNoTrans, CblasNonUnit, columns, qr, rows, b, 1);
    return info;
}
inline int solveByQR(int rows, int columns, const double *qr, const double *tau, double *b)
{
    static double work[lapackWork];
    const int one = 1;
    int info;
    dormqr_("L", "T", &rows, &one, &columns, qr, &rows, tau, b, &rows, work, &lapackWork, &info);
    cblas_dtrsv(CblasColMajor, CblasUpper, CblasNoTrans, CblasNonUnit, columns, qr, rows, b, 1);
    return info;
}
// The inverse in place, from what getrf left; the work space has `size` elements.
inline int getri(int n, float *a, const int *pivots, float *work, int size)
{
    int info;
    sgetri_(&n, a, &n, pivots, work, &size, &info);
    return info;
}
inline int getri(int n, double *a, const int *pivots, double *work, int size)
{
    int info;
    dgetri_(&n, a, &n, pivots, work, &size, &info);
    return info;
}
// Values of a symmetric matrix, the vectors in its place.
inline int syev(bool withVectors, int n, float *a, float *values)
{
    static float work[lapackWork];
    int info;
    ssyev_(withVectors ? "V" : "N", "L", &n, a, &n, values, work, &lapackWork, &info);
    return info;
}
inline int syev(bool withVectors, int n, double *a, double *values)
{
    static double work[lapackWork];
    int info;
    dsyev_(withVectors ? "V" : "N", "L", &n, a, &n, values, work, &lapackWork, &info);
    return info;
}
// Values of a general matrix, which is lost, and its vectors where they are wanted.
inline int geev(int n, float *a, float *re, float *im, float *left, float *right)
{
    static float work[lapackWork];
    int info;
    sgeev_(left ? "V" : "N", right ? "V" : "N", &n, a, &n, re, im, left, &n, right, &n, work,
           &lapackWork, &info);
    return info;
}
inline int geev(int n, double *a, double *re, double *im, double *left, double *right)
{
    static double work[lapackWork];
    int info;
    dgeev_(left ? "V" : "N", right ? "V" : "N", &n, a, &n, re, im, left, &n, right, &n, work,
           &lapackWork, &info);
    return info;
}
#endif

// LIBXSMM --------------------------------------------------------------------------------------

#ifdef BENCH_LIBXSMM
// Its kernels are column-major: as rows, kernel(b, a, c) is c = a b.
inline auto xsmmKernel(int n, float)
{
    const float one = 1, zero = 0;
    return libxsmm_smmdispatch(n, n, n, nullptr, nullptr, nullptr, &one, &zero, nullptr, nullptr);
}
inline auto xsmmKernel(int n, double)
{
    const double one = 1, zero = 0;
    return libxsmm_dmmdispatch(n, n, n, nullptr, nullptr, nullptr, &one, &zero, nullptr, nullptr);
}
#endif

// Names and versions; holds OpenBLAS to one thread.
template <class Say> void introducePeers(Say say)
{
    say("Eigen", std::to_string(EIGEN_WORLD_VERSION) + '.' + std::to_string(EIGEN_MAJOR_VERSION) +
                     '.' + std::to_string(EIGEN_MINOR_VERSION));
#ifdef BENCH_OPENBLAS
    openblas_set_num_threads(1);
    std::string version = openblas_get_config(); // "OpenBLAS 0.3.21 ..."
    version = version.substr(version.find(' ') + 1);
    version = version.substr(0, version.find(' '));
    say("OpenBLAS", version + ", kernels for " + openblas_get_corename() + ", one thread");
#endif
#ifdef BENCH_LIBXSMM
    say("LIBXSMM", std::string(LIBXSMM_VERSION) + ", code for " + libxsmm_get_target_arch());
#endif
}

} // namespace bench
