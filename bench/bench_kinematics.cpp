// Kinematics speed and success: forward kinematics per model, inverse
// kinematics per model from a reference near the target's configuration
// (within 5 degrees per joint) and from one anywhere in the limits, and the
// same chains, targets and seeds through KDL's ChainIkSolverPos_LMA. For
// each solver also the share of its answers whose every joint lies within
// 10 degrees of the reference. Then path continuity: Cartesian lines and
// circles of 1 mm steps, each step solved from the previous answer. Last, the
// solver at and near every model's singular configurations.
//
//   bench_kinematics [targets per model, default 2000]
#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <random>
#include <vector>

#include "algo_arm.h"
#include "libalgo_interface.h"
#include "tovi_inv_kinematics.h"
#include "tovi_kinematics.h"
#include "tovi_mathfuncs.h"

// The singular-configuration sampler and the Cartesian paths the tests use.
#include "../tests/test_algo_singular.h"

#ifdef KX_HAVE_KDL
#include <kdl/chain.hpp>
#include <kdl/chainfksolverpos_recursive.hpp>
#include <kdl/chainiksolverpos_lma.hpp>
#endif

namespace {

using Clock = std::chrono::steady_clock;
using singular::circle;
using singular::line;
using singular::PathRun;
using singular::Vec;

struct Sample {
    float q[8], ref[8];
};

struct Result {
    std::vector<double> us;
    int solved = 0, close = 0;  // close: solved with every joint within 10 degrees of the reference
    double median() {
        std::sort(us.begin(), us.end());
        return us.empty() ? 0 : us[us.size() / 2];
    }
    double p99() {
        std::sort(us.begin(), us.end());
        return us.empty() ? 0 : us[std::min(us.size() - 1, us.size() * 99 / 100)];
    }
    double rate() const { return us.empty() ? 0 : 100.0 * solved / us.size(); }
    double close_rate() const { return solved ? 100.0 * close / solved : 0; }
    void count(bool ok, const algo::ArmModel& m, const float* q, const float* ref) {
        if (!ok) return;
        ++solved;
        bool near = true;
        for (int i = 0; i < m.dof; ++i) near = near && std::fabs(q[i] - ref[i]) <= 10 * M_PI / 180;
        close += near;
    }
};

double since(Clock::time_point t0) { return std::chrono::duration<double, std::micro>(Clock::now() - t0).count(); }

// Within limits after moving each joint by whole turns, and reaching T.
bool accept(const algo::ArmModel& m, float* q, const float T[4][4]) {
    for (int i = 0; i < m.dof; ++i) {
        while (q[i] > m.jmax[i] && q[i] - 2 * M_PI >= m.jmin[i]) q[i] -= 2 * M_PI;
        while (q[i] < m.jmin[i] && q[i] + 2 * M_PI <= m.jmax[i]) q[i] += 2 * M_PI;
        if (!(q[i] >= m.jmin[i] && q[i] <= m.jmax[i])) return false;
    }
    float S[4][4];
    algo::arm_fk(m, q, S);
    for (int r = 0; r < 3; ++r) {
        if (!(std::fabs(S[r][3] - T[r][3]) < 1e-5)) return false;
        for (int c = 0; c < 3; ++c)
            if (!(std::fabs(S[r][c] - T[r][c]) < 1e-4)) return false;
    }
    return true;
}

std::vector<Sample> samples(const algo::ArmModel& m, int n, bool near, unsigned seed) {
    std::mt19937 rng(seed);
    auto uni = [&](double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(rng); };
    std::vector<Sample> out(n);
    const double five = 5 * M_PI / 180;
    for (Sample& s : out)
        for (int i = 0; i < 8; ++i) {
            s.q[i] = s.ref[i] = 0;
            if (i >= m.dof) continue;
            s.q[i] = uni(m.jmin[i], m.jmax[i]);
            s.ref[i] = near ? std::clamp<double>(s.q[i] + uni(-five, five), m.jmin[i], m.jmax[i])
                            : uni(m.jmin[i], m.jmax[i]);
        }
    return out;
}

Result ours(const algo::ArmModel& m, const std::vector<Sample>& set) {
    Result r;
    for (const Sample& s : set) {
        const Pose target = forward_kinematics(s.q);
        float out[8] = {}, T[4][4];
        algo::arm_fk(m, s.q, T);
        const auto t0 = Clock::now();
        const int rc = inverse_kinematics(s.ref, &target, out, 2);
        r.us.push_back(since(t0));
        r.count(rc == 0 && accept(m, out, T), m, out, s.ref);
    }
    return r;
}

#ifdef KX_HAVE_KDL
Result lma(const algo::ArmModel& m, const std::vector<Sample>& set) {
    KDL::Chain chain;
    for (int i = 0; i < m.dof; ++i) {
        chain.addSegment(KDL::Segment(KDL::Joint(KDL::Joint::None), KDL::Frame::DH_Craig1989(m.a[i], m.alpha[i], 0, 0)));
        chain.addSegment(KDL::Segment(KDL::Joint(KDL::Joint::RotZ),
                                      KDL::Frame(KDL::Rotation::RotZ(m.offset[i]), KDL::Vector(0, 0, m.d[i]))));
    }
    KDL::ChainIkSolverPos_LMA solver(chain, 1e-6, 500, 1e-15);
    Result r;
    for (const Sample& s : set) {
        float T[4][4];
        algo::arm_fk(m, s.q, T);
        KDL::Frame F;
        for (int i = 0; i < 3; ++i) {
            F.p(i) = T[i][3];
            for (int j = 0; j < 3; ++j) F.M(i, j) = T[i][j];
        }
        KDL::JntArray seed(m.dof), sol(m.dof);
        for (int i = 0; i < m.dof; ++i) seed(i) = s.ref[i];
        const auto t0 = Clock::now();
        const int rc = solver.CartToJnt(seed, F, sol);
        r.us.push_back(since(t0));
        float out[8] = {};
        for (int i = 0; i < m.dof; ++i) out[i] = static_cast<float>(sol(i));
        r.count(rc >= 0 && accept(m, out, T), m, out, s.ref);
    }
    return r;
}
#endif

// Summary of many runs: the largest step of the runs that stayed clear of
// the limits, and how many runs had a step above 2 degrees.
struct PathSummary {
    int runs = 0, left = 0, over = 0, over_at_limit = 0;
    double worst = 0;
    void add(const PathRun& r) {
        ++runs;
        // A path that leaves the reach stretches the arm on the way out,
        // where the joints must speed up: only whole paths are judged.
        if (r.done < r.steps) {
            ++left;
            return;
        }
        if (r.largest > 2) ++(r.at_limit ? over_at_limit : over);
        if (!r.at_limit) worst = std::max(worst, r.largest);
    }
};

void paths(int type, const char* name) {
    algo::ArmModel m;
    algo::default_model(type, _P, &m);
    // A working pose clear of singularities and limits for each model.
    const float deg = M_PI / 180;
    const float briv[8] = {10 * deg, 40 * deg, 10 * deg, 80 * deg, 10 * deg, 50 * deg, 0, 0};
    const float firu[8] = {10 * deg, 40 * deg, 10 * deg, -80 * deg, 10 * deg, 100 * deg, 0, 0};
    const float* q0 = type == BRIV ? briv : firu;
    std::mt19937 rng(7 + type);
    auto uni = [&](double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(rng); };
    for (int strategy : {0, 1}) {
        libalgo_set_robot_and_sensor_type(static_cast<RobotType>(type), _P);
        ikine_set_7dof_solver_search_strategy(strategy);
        const PathRun l = line(m, q0, {-0.2, 1, 0.3}, 0.2);
        const PathRun c = circle(m, q0, {1, 0, 0}, {0, 1, 0}, 0.1);
        // Random working poses (middle half of every joint's range, joints
        // 2, 4 and 6 at least 20 degrees from their singular zero), a line in
        // a random direction and a circle in a random plane from each.
        PathSummary sum;
        for (int k = 0; k < 50; ++k) {
            float q[8] = {};
            for (int i = 0; i < m.dof; ++i) {
                const double w = m.jmax[i] - m.jmin[i];
                do q[i] = uni(m.jmin[i] + w / 4, m.jmax[i] - w / 4);
                while (i % 2 == 1 && std::fabs(std::sin(q[i])) < std::sin(20 * deg));
            }
            Vec u{uni(-1, 1), uni(-1, 1), uni(-1, 1)}, v{uni(-1, 1), uni(-1, 1), uni(-1, 1)};
            const double nu = std::sqrt(u[0] * u[0] + u[1] * u[1] + u[2] * u[2]);
            for (double& x : u) x /= nu;
            const double uv = u[0] * v[0] + u[1] * v[1] + u[2] * v[2];
            for (int i = 0; i < 3; ++i) v[i] -= uv * u[i];
            const double nv = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
            for (double& x : v) x /= nv;
            sum.add(line(m, q, u, 0.15));
            sum.add(circle(m, q, u, v, 0.05));
        }
        auto show = [](const PathRun& r) {
            std::printf(" %6.3f%s%s", r.largest, r.at_limit ? "L" : " ", r.done < r.steps ? "!" : " ");
        };
        std::printf("%-9s %-6s |", name, strategy ? "narrow" : "wide");
        show(l);
        std::printf("     |");
        show(c);
        std::printf("      | %4d %10.3f %6d %6d %6d\n", sum.runs, sum.worst, sum.over, sum.over_at_limit, sum.left);
    }
}

// At and near the singular configurations: success, share of the answers
// with every joint within 5 degrees of a reference that lies within 2
// degrees of a solution, the farthest joint seen, and the median time.
void singular_series(int n, const char* const* names) {
    std::printf("\nsingular configurations, %d targets per model, kind and distance\n", n);
    std::printf("  a configuration with one joint at its singular value (exact) or up to 0.5 deg from it (near,\n");
    std::printf("  logarithmic down to 1e-7 rad); the reference within 2 deg of it on every joint; 7 joints wide\n");
    std::printf("  (strategy 0) unless marked /1. near5: share of the solved answers with every joint within\n");
    std::printf("  5 deg of the reference; worst: the farthest joint from the reference, degrees\n");
    std::printf("%-9s %-13s | %8s %8s %9s %9s\n", "model", "singularity", "success", "near5", "worst", "median us");
    for (int t : {AVEN, CALDII, CALDIII, CALDIV, DUMO, ESKA, GOLT, BRIV, FIRU})
        for (int strategy : {0, 1}) {
            if (strategy == 1 && t != BRIV && t != FIRU) continue;
            for (singular::Kind k : singular::kinds_of(t))
                for (double off : {0.0, 0.5 * singular::kDeg}) {
                    ikine_set_7dof_solver_search_strategy(strategy);
                    singular::Tally r = singular::run(t, k, off, n, 300 + 7 * t + k);
                    std::sort(r.us.begin(), r.us.end());
                    char label[24];
                    std::snprintf(label, sizeof label, "%s %s%s", singular::name(k), off > 0 ? "near" : "exact",
                                  strategy ? "/1" : "");
                    std::printf("%-9s %-13s | %7.2f%% %7.2f%% %9.3f %9.2f\n", names[t], label, r.solved_share(),
                                r.near_share(), r.worst, r.us.empty() ? 0 : r.us[r.us.size() / 2]);
                }
        }
}

}  // namespace

int main(int argc, char** argv) {
    const int n = argc > 1 ? std::max(10, std::atoi(argv[1])) : 2000;
    const char* names[] = {"AVEN", "BRIV", "CALDI", "CALDII", "CALDIII", "DUMO",
                           "ESKA", "FIRU", "GOLT",  "UNIVERSAL", "CALDIV"};
    std::printf("forward kinematics (forward_kinematics_e), ns per call\n");
    for (int t = 0; t <= CALDIV; ++t) {
        libalgo_set_robot_and_sensor_type(static_cast<RobotType>(t), _P);
        float q[8] = {0.1f, 0.2f, 0.3f, 0.4f, 0.5f, 0.6f, 0.7f, 0};
        const int reps = 200000;
        float sink = 0;
        const auto t0 = Clock::now();
        for (int i = 0; i < reps; ++i) {
            q[0] += 1e-6f;
            sink += forward_kinematics_e(q).data[0][3];
        }
        std::printf("  %-9s %7.1f%s\n", names[t], since(t0) * 1000.0 / reps, sink == 12345 ? " " : "");
    }
    std::printf("\ninverse kinematics, %d targets per model and reference kind\n", n);
    std::printf("  near: reference within 5 deg per joint; any: reference anywhere in the limits\n");
    std::printf("  7-joint search wide (strategy 0, +-3.14) unless marked /1: narrow (strategy 1, +-0.013)\n");
    std::printf("  within10: share of the solved answers with every joint within 10 deg of the reference\n");
    std::printf("%-9s %-6s | %9s %9s %8s %8s |", "model", "ref", "median us", "p99 us", "success", "within10");
#ifdef KX_HAVE_KDL
    std::printf(" %9s %9s %8s %8s | %7s", "LMA med", "LMA p99", "LMA succ", "LMA w10", "speedup");
#endif
    std::printf("\n");
    for (int t : {AVEN, CALDII, CALDIII, CALDIV, DUMO, ESKA, GOLT, BRIV, FIRU}) {
        algo::ArmModel m;
        algo::default_model(t, _P, &m);
        struct Row {
            bool near;
            int strategy;
        };
        const bool seven = m.dof == 7;
        for (Row row : {Row{true, 0}, Row{false, 0}, Row{true, 1}}) {
            if (row.strategy == 1 && !seven) continue;
            libalgo_set_robot_and_sensor_type(static_cast<RobotType>(t), _P);
            ikine_set_7dof_solver_search_strategy(row.strategy);
            const std::vector<Sample> set = samples(m, n, row.near, 100 + t);
            Result a = ours(m, set);
            char label[8];
            std::snprintf(label, sizeof label, "%s%s", row.near ? "near" : "any", row.strategy ? "/1" : "");
            std::printf("%-9s %-6s | %9.2f %9.2f %7.2f%% %7.2f%% |", names[t], label, a.median(), a.p99(), a.rate(),
                        a.close_rate());
#ifdef KX_HAVE_KDL
            Result b = lma(m, set);
            std::printf(" %9.2f %9.2f %7.2f%% %7.2f%% | %6.1fx", b.median(), b.p99(), b.rate(), b.close_rate(),
                        b.median() / a.median());
#endif
            std::printf("\n");
        }
    }
    std::printf("\npath continuity: 1 mm steps at a fixed orientation, each solved from the previous answer;\n");
    std::printf("  largest change of any joint in one step, degrees (L: a joint at its limit; !: left the reach)\n");
    std::printf("  given: a 200 mm line and a 100 mm radius circle from a working pose\n");
    std::printf("  random: 50 working poses clear of singularities, a 150 mm line and a 50 mm radius circle from each;\n");
    std::printf("  of the runs that stayed in reach: worst step clear of limits, runs with a step over 2 deg\n");
    std::printf("  (clear of limits / at a limit); and the runs that left the reach. A path that grazes the\n");
    std::printf("  edge of the reach straightens the elbow, where the joints must speed up whatever the solver\n");
    std::printf("%-9s %-6s | %9s | %11s | %4s %10s %6s %6s %6s\n", "model", "mode", "line", "circle", "runs", "worst",
                ">2deg", "limit", "left");
    paths(BRIV, "BRIV");
    paths(FIRU, "FIRU");
    singular_series(n, names);
    return 0;
}
