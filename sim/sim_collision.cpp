// Self-collision: the arm's links as capsules around the segments of its
// DH chain, checked pairwise (links next to each other always touch at
// their joint and are left out).
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>

#include "sim_arm.h"

namespace kxsim {
namespace {

using P3 = std::array<double, 3>;

constexpr double kSafety = 0.010;      /* m: closest approach allowed between two capsules' surfaces */
constexpr double kRadiusBase = 0.055;  /* m: capsule radius at the base of a reference arm ... */
constexpr double kRadiusTip = 0.035;   /* m: ... and at its tip */
constexpr double kReferenceReach = 0.85; /* m: that arm's summed link lengths; radii scale with a model's */
constexpr double kDegenerate = 1e-6;   /* m: a shorter segment is no link */

struct Capsule {
    P3 p, q;
    double r;
    int link; /* 0 the base column, counting outward */
};

P3 origin(const Mat4& m) { return {m[0][3], m[1][3], m[2][3]}; }
P3 sub(const P3& a, const P3& b) { return {a[0] - b[0], a[1] - b[1], a[2] - b[2]}; }
double dot(const P3& a, const P3& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

/* One modified DH row: RotX(alpha) TransX(a) RotZ(theta) TransZ(d). */
Mat4 dh_row(double alpha, double a, double theta, double d) {
    const double ca = std::cos(alpha), sa = std::sin(alpha), ct = std::cos(theta), st = std::sin(theta);
    Mat4 m = identity();
    m[0] = {ct, -st, 0, a};
    m[1] = {st * ca, ct * ca, -sa, -sa * d};
    m[2] = {st * sa, ct * sa, ca, ca * d};
    return m;
}

/* Closest distance between segments [p1, q1] and [p2, q2]. */
double segment_distance(const P3& p1, const P3& q1, const P3& p2, const P3& q2) {
    const P3 d1 = sub(q1, p1), d2 = sub(q2, p2), r = sub(p1, p2);
    const double a = dot(d1, d1), e = dot(d2, d2), f = dot(d2, r), c = dot(d1, r), b = dot(d1, d2);
    const double denom = a * e - b * b;
    double s = denom > 1e-12 ? std::clamp((b * f - c * e) / denom, 0.0, 1.0) : 0.0;
    double t = e > 1e-12 ? (b * s + f) / e : 0.0;
    if (t < 0 || t > 1) {
        t = std::clamp(t, 0.0, 1.0);
        s = a > 1e-12 ? std::clamp((b * t - c) / a, 0.0, 1.0) : 0.0;
    }
    P3 w{};
    for (int i = 0; i < 3; ++i) w[i] = p1[i] + d1[i] * s - p2[i] - d2[i] * t;
    return std::sqrt(dot(w, w));
}

/* The links at joints j: link k runs from joint k's frame along the
 * common normal (a) to the next joint's axis and along it (d). Links of no
 * length are merged into their neighbours, so that numbering counts
 * bodies, and the tool's reach beyond the flange is the last link. */
std::vector<Capsule> capsules(const ArmState& arm, const Joints& j) {
    const algo::ArmModel& m = arm.model;
    double reach = 0;
    for (int i = 0; i < arm.dof; ++i) reach += std::fabs(m.a[i]) + std::fabs(m.d[i]);
    const double scale = reach / kReferenceReach;
    std::vector<std::array<P3, 3>> raw; /* per link: start, elbow of the L, end */
    Mat4 T = identity();
    for (int i = 0; i < arm.dof; ++i) {
        const P3 from = origin(T);
        const Mat4 across = mul(T, dh_row(m.alpha[i], m.a[i], 0, 0));
        T = mul(T, dh_row(m.alpha[i], m.a[i], j[i] * M_PI / 180.0 + m.offset[i], m.d[i]));
        raw.push_back({from, origin(across), origin(T)});
    }
    const P3 tool = origin(mul(T, arm.tool_in_base()));
    raw.push_back({origin(T), origin(T), tool});
    std::vector<Capsule> out;
    int link = -1;
    for (size_t k = 0; k < raw.size(); ++k) {
        const auto& [p, elbow, q] = raw[k];
        bool counted = false;
        for (const auto& [s, e] : {std::pair{p, elbow}, std::pair{elbow, q}}) {
            if (std::sqrt(dot(sub(e, s), sub(e, s))) < kDegenerate) continue;
            if (!counted) ++link, counted = true;
            const double f = static_cast<double>(k) / static_cast<double>(raw.size() - 1);
            out.push_back({s, e, scale * (kRadiusBase + (kRadiusTip - kRadiusBase) * f), link});
        }
    }
    return out;
}

/* Pairs of links whose capsules touch in nearly every pose (joined by a
 * link shorter than their radii): they are one body for this check, as in
 * any link model, and are left out. Sampled once per geometry. */
using Touching = std::array<std::array<bool, 16>, 16>;

Touching touching(const ArmState& arm) {
    constexpr int kSamples = 200;
    std::array<std::array<int, 16>, 16> hits{};
    uint32_t seed = 12345;
    auto uniform = [&seed] {
        seed = seed * 1664525u + 1013904223u;
        return (seed >> 8) / 16777216.0;
    };
    for (int n = 0; n < kSamples; ++n) {
        Joints j{};
        for (int i = 0; i < arm.dof; ++i)
            j[i] = arm.min_pos[i] / 1000.0 + uniform() * (arm.max_pos[i] - arm.min_pos[i]) / 1000.0;
        const std::vector<Capsule> c = capsules(arm, j);
        for (const Capsule& x : c)
            for (const Capsule& y : c)
                if (x.link < y.link && y.link < 16 &&
                    segment_distance(x.p, x.q, y.p, y.q) - x.r - y.r < kSafety)
                    ++hits[static_cast<size_t>(x.link)][static_cast<size_t>(y.link)];
    }
    Touching t{};
    for (size_t x = 0; x < 16; ++x)
        for (size_t y = 0; y < 16; ++y) t[x][y] = hits[x][y] >= kSamples * 9 / 10;
    return t;
}

/* The pairs for the arm's present geometry (its DH, limits and tool), kept per thread. */
const Touching& touching_of(const ArmState& arm) {
    thread_local std::string key;
    thread_local Touching pairs{};
    std::string k = std::to_string(arm.dof);
    for (int i = 0; i < arm.dof; ++i)
        for (int v : {arm.dh[i][0], arm.dh[i][1], arm.dh[i][2], arm.dh[i][3], arm.min_pos[i], arm.max_pos[i]})
            k += "," + std::to_string(v);
    for (int v : arm.current_tool()->pose) k += "," + std::to_string(v);
    if (k != key) {
        pairs = touching(arm);
        key = std::move(k);
    }
    return pairs;
}

}  // namespace

std::string self_collision(const ArmState& arm, const Joints& j) {
    const std::vector<Capsule> c = capsules(arm, j);
    const Touching& joined = touching_of(arm);
    for (size_t x = 0; x < c.size(); ++x)
        for (size_t y = x + 1; y < c.size(); ++y) {
            if (c[y].link - c[x].link < 2) continue; /* the same link, or neighbours at their joint */
            if (c[y].link < 16 && joined[static_cast<size_t>(c[x].link)][static_cast<size_t>(c[y].link)]) continue;
            const double gap = segment_distance(c[x].p, c[x].q, c[y].p, c[y].q) - c[x].r - c[y].r;
            if (gap < kSafety) {
                char text[160];
                std::snprintf(text, sizeof text,
                              "links %d and %d would come %.3f m apart, closer than the %.3f m safety distance",
                              c[x].link, c[y].link, std::max(gap, 0.0), kSafety);
                return text;
            }
        }
    return {};
}

}  // namespace kxsim
