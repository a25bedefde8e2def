// Kinematics speed and success: forward kinematics per model, inverse
// kinematics per model from a reference near the target's configuration
// (within 5 degrees per joint) and from one anywhere in the limits, and the
// same chains, targets and seeds through KDL's ChainIkSolverPos_LMA.
//
//   bench_kinematics [targets per model, default 2000]
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <vector>

#include "algo_arm.h"
#include "libalgo_interface.h"
#include "tovi_inv_kinematics.h"
#include "tovi_kinematics.h"
#include "tovi_mathfuncs.h"

#ifdef KX_HAVE_KDL
#include <kdl/chain.hpp>
#include <kdl/chainfksolverpos_recursive.hpp>
#include <kdl/chainiksolverpos_lma.hpp>
#endif

namespace {

using Clock = std::chrono::steady_clock;

struct Sample {
    float q[8], ref[8];
};

struct Result {
    std::vector<double> us;
    int solved = 0;
    double median() {
        std::sort(us.begin(), us.end());
        return us.empty() ? 0 : us[us.size() / 2];
    }
    double p99() {
        std::sort(us.begin(), us.end());
        return us.empty() ? 0 : us[std::min(us.size() - 1, us.size() * 99 / 100)];
    }
    double rate() const { return us.empty() ? 0 : 100.0 * solved / us.size(); }
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
        r.solved += rc == 0 && accept(m, out, T);
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
        r.solved += rc >= 0 && accept(m, out, T);
    }
    return r;
}
#endif

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
    std::printf("%-9s %-6s | %9s %9s %8s |", "model", "ref", "median us", "p99 us", "success");
#ifdef KX_HAVE_KDL
    std::printf(" %9s %9s %8s | %7s", "LMA med", "LMA p99", "LMA succ", "speedup");
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
            std::printf("%-9s %-6s | %9.2f %9.2f %7.2f%% |", names[t], label, a.median(), a.p99(), a.rate());
#ifdef KX_HAVE_KDL
            Result b = lma(m, set);
            std::printf(" %9.2f %9.2f %7.2f%% | %6.1fx", b.median(), b.p99(), b.rate(), b.median() / a.median());
#endif
            std::printf("\n");
        }
    }
    return 0;
}
