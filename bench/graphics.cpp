// SPDX-License-Identifier: Apache-2.0
// The fixed-size kit beside GLM and cglm, whose columns are zonm's rows: the same 16 numbers in
// memory, the factors of a product exchanged. Every peer computes in single precision.
#include "harness.hpp"

#define CGLM_CLIPSPACE_INCLUDE_ALL
#include <cglm/cglm.h>
#include <glm/glm.hpp>
#include <glm/gtc/matrix_transform.hpp>
#include <zonm.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <tuple>

namespace bench
{
namespace
{

// Arrays of dense objects, read by every contestant as its own type.
struct Data {
    float *p;
    int length;

    Data(float *memory, int n) : p(memory), length(n) {}
    float *operator[](int k) const { return p + std::size_t(k) * length; }
    template <class M> M &as(int k) const { return *reinterpret_cast<M *>((*this)[k]); }
    int step() const { return length * int(sizeof(float)); }
};
Data input(int length, int count) { return {random<float>(std::size_t(length) * count), length}; }
Data output(int length, int count)
{
    return {allocate<float>(std::size_t(length) * count), length};
}

// The results of objects 0, 1, ... must be those of `of(k)`, evaluated in double.
template <class Of> std::function<double()> within(Data d, int count, double tolerance, Of of)
{
    return [=] {
        double worst = 0;
        for (int k = 0; k < std::min(count, 500); ++k) {
            const auto wanted = of(k);
            const double *w = reinterpret_cast<const double *>(&wanted);
            double scale = 1;
            for (int i = 0; i < d.length; ++i)
                scale = std::max(scale, std::fabs(w[i]));
            for (int i = 0; i < d.length; ++i) {
                const double error = std::fabs(d[k][i] - w[i]) / (tolerance * scale);
                worst = error <= worst ? worst : error; // a NaN stays
            }
        }
        return worst;
    };
}

using glm::dmat4, glm::dvec3, glm::dvec4, glm::mat4, glm::vec3, glm::vec4;

template <class Double, class Single> Double wide(const Data &d, int k)
{
    return Double(d.as<Single>(k));
}

// The peers are functions of the same pointers and numbers as zonm's exports.
mat4 &asMatrix(float *p) { return *reinterpret_cast<mat4 *>(p); }
vec3 &asVector3(float *p) { return *reinterpret_cast<vec3 *>(p); }
vec4 &asVector4(float *p) { return *reinterpret_cast<vec4 *>(p); }

template <class F, class... A> __attribute__((noinline)) void behindACall(A... arguments)
{
    F{}(arguments...);
}

inline float *argument(const Data &d, int k) { return d[k]; }
template <class T> T argument(T value, int) { return value; }

Row named(const char *operation, int n, int count)
{
    return {"graphics", operation, "32f", n, count};
}

// Whose entries this unit makes: those of all contestants, or only those of GLM without vectors.
#if defined(BENCH_SCALAR)
constexpr bool scalar = true;
#else
constexpr bool scalar = false;
#endif

// A row of calls, one per object, that write `d`. A peer stands inlined in the loop over the
// objects; GLM also stands behind a function call, as zonm does.
template <class... Arguments> class Single
{
  public:
    Single(const char *operation, int n, int count, Data d, std::function<double()> check,
           Arguments... a)
        : row(named(operation, n, count)), arguments(a...)
    {
        row.oneByOne(count).into(d.p, std::size_t(count) * d.step()).check(check);
    }
    template <class F> Single &zonm(F *function)
    {
        return scalar ? *this : add("zonm", [=](auto... a) { return function(a...); });
    }
    template <class F> Single &glm(F function)
    {
        if (scalar)
            return add("GLM scalar", function);
        add("GLM", function);
        return add("GLM called", [](auto... a) { behindACall<F>(a...); });
    }
    template <class F> Single &cglm(F function) { return scalar ? *this : add("cglm", function); }

  private:
    template <class F> Single &add(const char *contestant, F function)
    {
        row.add(contestant, [function, tuple = arguments](int k, int) {
            return std::apply([&](auto &...a) { return function(argument(a, k)...); }, tuple);
        });
        return *this;
    }

    Row row;
    std::tuple<Arguments...> arguments;
};

// A row of one call for all objects, of which a contestant is told the number.
class Array
{
  public:
    Array(const char *operation, int n, int count, Data d, std::function<double()> check)
        : row(named(operation, n, count))
    {
        row.into(d.p, std::size_t(count) * d.step()).check(check);
    }
    template <class F> Array &zonm(F f) { return scalar ? *this : add("zonm", f); }
    template <class F> Array &glm(F f) { return add(scalar ? "GLM scalar" : "GLM", f); }
    template <class F> Array &cglm(F f) { return scalar ? *this : add("cglm", f); }

  private:
    template <class F> Array &add(const char *contestant, F f)
    {
        row.add(contestant, [f](int, int count) { return f(count); });
        return *this;
    }

    Row row;
};

auto columns(float *p) { return reinterpret_cast<::vec4 *>(p); }

void matrices(int count)
{
    const Data a = input(16, count), b = input(16, count), d = output(16, count),
               s = output(1, count);
    // Far from singular, so that rounding does not decide what is right.
    for (int k = 0; k < count; ++k)
        for (int i = 0; i < 4; ++i)
            a[k][5 * i] += a[k][5 * i] < 0 ? -2 : 2;
    const auto A = [=](int k) { return wide<dmat4, mat4>(a, k); };
    const auto B = [=](int k) { return wide<dmat4, mat4>(b, k); };

    Single("zonmMul_mm4x4", 4, count, d, within(d, count, 1e-6, [=](int k) { return B(k) * A(k); }),
           a, b, d)
        .zonm(zonmMul_mm4x4_32f)
        .glm([](float *x, float *y, float *z) { asMatrix(z) = asMatrix(y) * asMatrix(x); })
        .cglm(
            [](float *x, float *y, float *z) { glm_mat4_mul(columns(y), columns(x), columns(z)); });
    Single("zonmInvert_m4", 4, count, d,
           within(d, count, 1e-4, [=](int k) { return glm::inverse(A(k)); }), a, nullptr, d)
        .zonm(zonmInvert_m4_32f)
        .glm([](float *x, std::nullptr_t, float *z) { asMatrix(z) = glm::inverse(asMatrix(x)); })
        .cglm([](float *x, std::nullptr_t, float *z) { glm_mat4_inv(columns(x), columns(z)); });
    Single("zonmDet_m4", 4, count, s,
           within(s, count, 1e-5, [=](int k) { return glm::determinant(A(k)); }), a, s)
        .zonm(zonmDet_m4_32f)
        .glm([](float *x, float *z) { *z = glm::determinant(asMatrix(x)); })
        .cglm([](float *x, float *z) { *z = glm_mat4_det(columns(x)); });
    Single("zonmTranspose_m4", 4, count, d,
           within(d, count, 1e-7, [=](int k) { return glm::transpose(A(k)); }), a, d)
        .zonm(zonmTranspose_m4_32f)
        .glm([](float *x, float *z) { asMatrix(z) = glm::transpose(asMatrix(x)); })
        .cglm([](float *x, float *z) { glm_mat4_transpose_to(columns(x), columns(z)); });
}

void builders(int count)
{
    const Data v = input(3, count), w = input(3, count), angle = input(1, count);
    const Data d = output(16, count);
    static float up[] = {0, 1, 0};
    const auto V = [=](int k) { return wide<dvec3, vec3>(v, k); };
    const auto W = [=](int k) { return wide<dvec3, vec3>(w, k); };

    // The exports take the angle by value.
    Single("zonmRotationAxis_v3m4", 4, count, d,
           within(d, count, 1e-6,
                  [=](int k) { return glm::rotate(dmat4(1), double(*angle[k]), V(k)); }),
           v, angle, d)
        .zonm(+[](float *x, float *t, float *z) { return zonmRotationAxis_v3m4_32f(x, *t, z); })
        .glm([](float *x, float *t, float *z) {
            asMatrix(z) = glm::rotate(mat4(1), *t, asVector3(x));
        })
        .cglm([](float *x, float *t, float *z) { glm_rotate_make(columns(z), *t, x); });
    Single("zonmLookAtRH_m4", 4, count, d,
           within(d, count, 1e-4, [=](int k) { return glm::lookAtRH(V(k), W(k), dvec3(0, 1, 0)); }),
           v, w, &up[0], d)
        .zonm(zonmLookAtRH_m4_32f)
        .glm([](float *x, float *y, float *u, float *z) {
            asMatrix(z) = glm::lookAtRH(asVector3(x), asVector3(y), asVector3(u));
        })
        .cglm(
            [](float *x, float *y, float *u, float *z) { glm_lookat_rh_zo(x, y, u, columns(z)); });
    Single("zonmPerspectiveFovRH_m4", 4, count, d,
           within(d, count, 1e-5,
                  [=](int k) { return glm::perspectiveRH_ZO(2.0 + *angle[k], 1.5, 1.0, 100.0); }),
           angle, d)
        .zonm(+[](float *t, float *z) {
            return zonmPerspectiveFovRH_m4_32f(2 + *t, 1.5f, 1, 100, z);
        })
        .glm([](float *t, float *z) {
            asMatrix(z) = glm::perspectiveRH_ZO(2 + *t, 1.5f, 1.f, 100.f);
        })
        .cglm([](float *t, float *z) { glm_perspective_rh_zo(2 + *t, 1.5f, 1, 100, columns(z)); });
}

void vectors(int count)
{
    const Data a3 = input(3, count), b3 = input(3, count), d3 = output(3, count);
    const Data a4 = input(4, count), b4 = input(4, count), d4 = output(4, count);
    const Data s = output(1, count);
    const auto A3 = [=](int k) { return wide<dvec3, vec3>(a3, k); };
    const auto B3 = [=](int k) { return wide<dvec3, vec3>(b3, k); };
    const auto A4 = [=](int k) { return wide<dvec4, vec4>(a4, k); };
    const auto B4 = [=](int k) { return wide<dvec4, vec4>(b4, k); };
    const double tolerance = 1e-6;

    Single("zonmAdd_v4", 4, count, d4,
           within(d4, count, tolerance, [=](int k) { return A4(k) + B4(k); }), a4, b4, d4)
        .zonm(zonmAdd_v4_32f)
        .glm([](float *x, float *y, float *z) { asVector4(z) = asVector4(x) + asVector4(y); })
        .cglm([](float *x, float *y, float *z) { glm_vec4_add(x, y, z); });
    Single("zonmMin_v4", 4, count, d4,
           within(d4, count, tolerance, [=](int k) { return glm::min(A4(k), B4(k)); }), a4, b4, d4)
        .zonm(zonmMin_v4_32f)
        .glm([](float *x, float *y, float *z) {
            asVector4(z) = glm::min(asVector4(x), asVector4(y));
        })
        .cglm([](float *x, float *y, float *z) { glm_vec4_minv(x, y, z); });
    Single("zonmDotProduct_v4", 4, count, s,
           within(s, count, tolerance, [=](int k) { return glm::dot(A4(k), B4(k)); }), a4, b4, s)
        .zonm(zonmDotProduct_v4_32f)
        .glm([](float *x, float *y, float *z) { *z = glm::dot(asVector4(x), asVector4(y)); })
        .cglm([](float *x, float *y, float *z) { *z = glm_vec4_dot(x, y); });
    Single("zonmCrossProduct_v3", 3, count, d3,
           within(d3, count, tolerance, [=](int k) { return glm::cross(A3(k), B3(k)); }), a3, b3,
           d3)
        .zonm(zonmCrossProduct_v3_32f)
        .glm([](float *x, float *y, float *z) {
            asVector3(z) = glm::cross(asVector3(x), asVector3(y));
        })
        .cglm([](float *x, float *y, float *z) { glm_vec3_cross(x, y, z); });
    Single("zonmLen_v3", 3, count, s,
           within(s, count, tolerance, [=](int k) { return glm::length(A3(k)); }), a3, s)
        .zonm(zonmLen_v3_32f)
        .glm([](float *x, float *z) { *z = glm::length(asVector3(x)); })
        .cglm([](float *x, float *z) { *z = glm_vec3_norm(x); });
    Single("zonmNormalize_v3", 3, count, d3,
           within(d3, count, tolerance, [=](int k) { return glm::normalize(A3(k)); }), a3, d3)
        .zonm(zonmNormalize_v3_32f)
        .glm([](float *x, float *z) { asVector3(z) = glm::normalize(asVector3(x)); })
        .cglm([](float *x, float *z) { glm_vec3_normalize_to(x, z); });
    Single("zonmInterpolationLinear_v3", 3, count, d3,
           within(d3, count, tolerance, [=](int k) { return glm::mix(A3(k), B3(k), 0.25); }), a3,
           b3, 0.25f, d3)
        .zonm(zonmInterpolationLinear_v3_32f)
        .glm([](float *x, float *y, float t, float *z) {
            asVector3(z) = glm::mix(asVector3(x), asVector3(y), t);
        })
        .cglm([](float *x, float *y, float t, float *z) { glm_vec3_lerp(x, y, t, z); });
}

// A view into which the points from -1 to 1 fall.
struct Scene {
    mat4 proj = glm::perspectiveRH_ZO(0.8f, 1.5f, 1.f, 40.f);
    mat4 view = glm::lookAtRH(vec3(3, 4, 12), vec3(0), vec3(0, 1, 0));
    mat4 world = glm::rotate(mat4(1), 0.7f, vec3(1, 2, 3));
};
template <class Vec3, class Mat4> Vec3 coordinates(const Mat4 &m, const Vec3 &v)
{
    const auto t = m * glm::vec<4, typename Vec3::value_type>(v, 1);
    return Vec3(t) / t.w;
}

void transforms(int count)
{
    const Data v3 = input(3, count), v4 = input(4, count);
    const Data d3 = output(3, count), d4 = output(4, count);
    static const Scene scene;
    static mat4 m = scene.proj * scene.view;
    float *const p = &m[0][0];
    const dmat4 M(m);
    const auto V3 = [=](int k) { return wide<dvec3, vec3>(v3, k); };
    const double tolerance = 1e-5;
    const auto coordinatesOf = [=](int k) { return coordinates(M, V3(k)); };
    const auto normalOf = [=](int k) { return glm::dmat3(M) * V3(k); };
    const auto pointOf = [=](int k) { return M * dvec4(V3(k), 1); };

    // One call per object.
    Single("zonmAffineTransform_m4v3", 3, count, d4, within(d4, count, tolerance, pointOf), p, v3,
           d4)
        .zonm(zonmAffineTransform_m4v3_32f)
        .glm([](float *x, float *y, float *z) {
            asVector4(z) = asMatrix(x) * vec4(asVector3(y), 1);
        });
    Single("zonmAffineTransformCoord_m4v3", 3, count, d3,
           within(d3, count, tolerance, coordinatesOf), p, v3, d3)
        .zonm(zonmAffineTransformCoord_m4v3_32f)
        .glm([](float *x, float *y, float *z) {
            asVector3(z) = coordinates(asMatrix(x), asVector3(y));
        });
    Single("zonmAffineTransformNormal_m4v3", 3, count, d3, within(d3, count, tolerance, normalOf),
           p, v3, d3)
        .zonm(zonmAffineTransformNormal_m4v3_32f)
        .glm([](float *x, float *y, float *z) {
            asVector3(z) = glm::mat3(asMatrix(x)) * asVector3(y);
        });

    // All objects in one call.
    Array("zonmAffineTransform_m4v4a", 4, count, d4,
          within(d4, count, tolerance, [=](int k) { return M * wide<dvec4, vec4>(v4, k); }))
        .zonm([=](int n) {
            return zonmAffineTransform_m4v4a_32f(p, v4.p, v4.step(), d4.p, d4.step(), n);
        })
        .glm([=](int n) {
            for (int k = 0; k < n; ++k)
                d4.as<vec4>(k) = m * v4.as<vec4>(k);
        })
        .cglm([=](int n) {
            ::mat4 c;
            std::memcpy(c, p, sizeof c);
            for (int k = 0; k < n; ++k)
                glm_mat4_mulv(c, v4[k], d4[k]);
        });
    Array("zonmAffineTransform_m4v3a", 3, count, d4, within(d4, count, tolerance, pointOf))
        .zonm([=](int n) {
            return zonmAffineTransform_m4v3a_32f(p, v3.p, v3.step(), d4.p, d4.step(), n);
        })
        .glm([=](int n) {
            for (int k = 0; k < n; ++k)
                d4.as<vec4>(k) = m * vec4(v3.as<vec3>(k), 1);
        });
    Array("zonmAffineTransformCoord_m4v3a", 3, count, d3,
          within(d3, count, tolerance, coordinatesOf))
        .zonm([=](int n) {
            return zonmAffineTransformCoord_m4v3a_32f(p, v3.p, v3.step(), d3.p, d3.step(), n);
        })
        .glm([=](int n) {
            for (int k = 0; k < n; ++k)
                d3.as<vec3>(k) = coordinates(m, v3.as<vec3>(k));
        });
    Array("zonmAffineTransformNormal_m4v3a", 3, count, d3, within(d3, count, tolerance, normalOf))
        .zonm([=](int n) {
            return zonmAffineTransformNormal_m4v3a_32f(p, v3.p, v3.step(), d3.p, d3.step(), n);
        })
        .glm([=](int n) {
            const glm::mat3 linear(m);
            for (int k = 0; k < n; ++k)
                d3.as<vec3>(k) = linear * v3.as<vec3>(k);
        })
        .cglm([=](int n) {
            ::mat4 c;
            std::memcpy(c, p, sizeof c);
            for (int k = 0; k < n; ++k)
                glm_mat4_mulv3(c, v3[k], 0, d3[k]);
        });

    const auto onScreen = [](const auto &t) {
        using V = std::decay_t<decltype(t)>;
        using T = typename V::value_type;
        return V((t.x + 1) * 640 * T(0.5), T(0.5) * ((1 - t.y) * 480), t.z);
    };
    const auto project = [=](const auto &proj, const auto &view, const auto &world, const auto &v) {
        return onScreen(coordinates(proj, coordinates(view, coordinates(world, v))));
    };
    Array("zonmProject_m4v3a", 3, count, d3,
          within(d3, count, 1e-4,
                 [=](int k) {
                     return project(dmat4(scene.proj), dmat4(scene.view), dmat4(scene.world),
                                    V3(k));
                 }))
        .zonm([=](int n) {
            return zonmProject_m4v3a_32f(&scene.proj[0][0], &scene.view[0][0], &scene.world[0][0],
                                         v3.p, v3.step(), 640, 480, 0, 1, d3.p, d3.step(), n);
        })
        .glm([=](int n) {
            const Scene s = scene;
            for (int k = 0; k < n; ++k)
                d3.as<vec3>(k) = project(s.proj, s.view, s.world, v3.as<vec3>(k));
        });
}

const Group group([] {
    for (const int count : {2048, 100000}) {
        matrices(count);
        builders(count);
        vectors(count);
        transforms(count);
    }
});

} // namespace
} // namespace bench
