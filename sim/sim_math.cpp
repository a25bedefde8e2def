#include "sim_math.h"

#include <algorithm>
#include <cmath>

namespace kxsim {

Mat4 identity() {
    Mat4 m{};
    for (int i = 0; i < 4; ++i) m[i][i] = 1.0;
    return m;
}

Mat4 mul(const Mat4& a, const Mat4& b) {
    Mat4 r{};
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            for (int k = 0; k < 4; ++k) r[i][j] += a[i][k] * b[k][j];
    return r;
}

Mat4 inverse(const Mat4& a) {
    Mat4 r = identity();
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) r[i][j] = a[j][i];
    for (int i = 0; i < 3; ++i) r[i][3] = -(r[i][0] * a[0][3] + r[i][1] * a[1][3] + r[i][2] * a[2][3]);
    return r;
}

Mat4 from_pose6(const double v[6]) {
    const double cx = std::cos(v[3]), sx = std::sin(v[3]);
    const double cy = std::cos(v[4]), sy = std::sin(v[4]);
    const double cz = std::cos(v[5]), sz = std::sin(v[5]);
    Mat4 m = identity();
    m[0][0] = cz * cy; m[0][1] = cz * sy * sx - sz * cx; m[0][2] = cz * sy * cx + sz * sx;
    m[1][0] = sz * cy; m[1][1] = sz * sy * sx + cz * cx; m[1][2] = sz * sy * cx - cz * sx;
    m[2][0] = -sy;     m[2][1] = cy * sx;                m[2][2] = cy * cx;
    m[0][3] = v[0]; m[1][3] = v[1]; m[2][3] = v[2];
    return m;
}

void to_pose6(const Mat4& m, double v[6]) {
    v[0] = m[0][3]; v[1] = m[1][3]; v[2] = m[2][3];
    const double sy = std::clamp(-m[2][0], -1.0, 1.0);
    v[4] = std::asin(sy);
    if (std::fabs(sy) < 0.999999) {
        v[3] = std::atan2(m[2][1], m[2][2]);
        v[5] = std::atan2(m[1][0], m[0][0]);
    } else {  // gimbal lock: put the whole yaw into rz
        v[3] = 0.0;
        v[5] = std::atan2(-m[0][1], m[1][1]);
    }
}

void to_quat(const Mat4& m, double q[4]) {
    const double tr = m[0][0] + m[1][1] + m[2][2];
    if (tr > 0) {
        const double s = std::sqrt(tr + 1.0) * 2;
        q[0] = 0.25 * s; q[1] = (m[2][1] - m[1][2]) / s;
        q[2] = (m[0][2] - m[2][0]) / s; q[3] = (m[1][0] - m[0][1]) / s;
    } else if (m[0][0] > m[1][1] && m[0][0] > m[2][2]) {
        const double s = std::sqrt(1.0 + m[0][0] - m[1][1] - m[2][2]) * 2;
        q[0] = (m[2][1] - m[1][2]) / s; q[1] = 0.25 * s;
        q[2] = (m[0][1] + m[1][0]) / s; q[3] = (m[0][2] + m[2][0]) / s;
    } else if (m[1][1] > m[2][2]) {
        const double s = std::sqrt(1.0 + m[1][1] - m[0][0] - m[2][2]) * 2;
        q[0] = (m[0][2] - m[2][0]) / s; q[1] = (m[0][1] + m[1][0]) / s;
        q[2] = 0.25 * s; q[3] = (m[1][2] + m[2][1]) / s;
    } else {
        const double s = std::sqrt(1.0 + m[2][2] - m[0][0] - m[1][1]) * 2;
        q[0] = (m[1][0] - m[0][1]) / s; q[1] = (m[0][2] + m[2][0]) / s;
        q[2] = (m[1][2] + m[2][1]) / s; q[3] = 0.25 * s;
    }
    if (q[0] < 0) for (int i = 0; i < 4; ++i) q[i] = -q[i];  // one canonical sign
}

Mat4 from_quat(const double pos[3], const double qin[4]) {
    double n = std::sqrt(qin[0] * qin[0] + qin[1] * qin[1] + qin[2] * qin[2] + qin[3] * qin[3]);
    if (n < 1e-12) n = 1.0;
    const double w = qin[0] / n, x = qin[1] / n, y = qin[2] / n, z = qin[3] / n;
    Mat4 m = identity();
    m[0][0] = 1 - 2 * (y * y + z * z); m[0][1] = 2 * (x * y - w * z);     m[0][2] = 2 * (x * z + w * y);
    m[1][0] = 2 * (x * y + w * z);     m[1][1] = 1 - 2 * (x * x + z * z); m[1][2] = 2 * (y * z - w * x);
    m[2][0] = 2 * (x * z - w * y);     m[2][1] = 2 * (y * z + w * x);     m[2][2] = 1 - 2 * (x * x + y * y);
    for (int i = 0; i < 3; ++i) m[i][3] = pos[i];
    return m;
}

Mat4 interpolate(const Mat4& a, const Mat4& b, double s) {
    double qa[4], qb[4], q[4], p[3];
    to_quat(a, qa);
    to_quat(b, qb);
    double dot = qa[0] * qb[0] + qa[1] * qb[1] + qa[2] * qb[2] + qa[3] * qb[3];
    if (dot < 0) {
        for (double& v : qb) v = -v;
        dot = -dot;
    }
    double wa = 1 - s, wb = s;
    if (dot < 0.9995) {
        const double th = std::acos(std::clamp(dot, -1.0, 1.0));
        wa = std::sin((1 - s) * th) / std::sin(th);
        wb = std::sin(s * th) / std::sin(th);
    }
    for (int i = 0; i < 4; ++i) q[i] = wa * qa[i] + wb * qb[i];
    for (int i = 0; i < 3; ++i) p[i] = a[i][3] + s * (b[i][3] - a[i][3]);
    return from_quat(p, q);
}

double distance(const Mat4& a, const Mat4& b) {
    const double dx = a[0][3] - b[0][3], dy = a[1][3] - b[1][3], dz = a[2][3] - b[2][3];
    return std::sqrt(dx * dx + dy * dy + dz * dz);
}

double angle_between(const Mat4& a, const Mat4& b) {
    double tr = 0;  // trace of a^T b
    for (int i = 0; i < 3; ++i)
        for (int k = 0; k < 3; ++k) tr += a[k][i] * b[k][i];
    return std::acos(std::clamp((tr - 1) / 2, -1.0, 1.0));
}

Mat4 rotation(const double axis[3], double angle) {
    const double h = angle / 2, s = std::sin(h);
    const double q[4] = {std::cos(h), axis[0] * s, axis[1] * s, axis[2] * s};
    const double zero[3] = {0, 0, 0};
    return from_quat(zero, q);
}

std::array<double, 3> rotation_vector(const Mat4& m) {
    const std::array<double, 3> w = {m[2][1] - m[1][2], m[0][2] - m[2][0], m[1][0] - m[0][1]};
    const double angle = std::acos(std::clamp((m[0][0] + m[1][1] + m[2][2] - 1) / 2, -1.0, 1.0));
    const double k = angle < 1e-9 ? 0.5 : angle / (2 * std::sin(angle));
    return {k * w[0], k * w[1], k * w[2]};
}

bool solve_linear(std::vector<std::vector<double>> A, std::vector<double> b, std::vector<double>& x) {
    const size_t n = b.size();
    for (size_t k = 0; k < n; ++k) {
        size_t p = k;
        for (size_t i = k + 1; i < n; ++i)
            if (std::fabs(A[i][k]) > std::fabs(A[p][k])) p = i;
        if (std::fabs(A[p][k]) < 1e-12) return false;
        std::swap(A[k], A[p]);
        std::swap(b[k], b[p]);
        for (size_t i = k + 1; i < n; ++i) {
            const double f = A[i][k] / A[k][k];
            for (size_t j = k; j < n; ++j) A[i][j] -= f * A[k][j];
            b[i] -= f * b[k];
        }
    }
    x.assign(n, 0);
    for (size_t k = n; k-- > 0;) {
        double s = b[k];
        for (size_t j = k + 1; j < n; ++j) s -= A[k][j] * x[j];
        x[k] = s / A[k][k];
    }
    return true;
}

}  // namespace kxsim
