// Pose arithmetic: Euler angles, quaternions, homogeneous matrices, and
// the helpers that choose among candidate joint solutions.
#include "tovi_mathfuncs.h"

#include <cmath>

#include "tovi_int.h"

namespace {

Matrix blank(int dim) {
    Matrix m{};
    m.irow = m.iline = static_cast<int16_t>(dim);
    return m;
}

void put_rotation(Matrix& m, float rx, float ry, float rz) {
    const double cx = std::cos(rx), sx = std::sin(rx), cy = std::cos(ry), sy = std::sin(ry);
    const double cz = std::cos(rz), sz = std::sin(rz);
    const double R[3][3] = {{cz * cy, cz * sy * sx - sz * cx, cz * sy * cx + sz * sx},
                            {sz * cy, sz * sy * sx + cz * cx, sz * sy * cx - cz * sx},
                            {-sy, cy * sx, cy * cx}};
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) m.data[i][j] = static_cast<float>(R[i][j]);
}

void put_quat_rotation(Matrix& m, const Quat& q) {
    const double w = q.w, x = q.x, y = q.y, z = q.z;
    const double R[3][3] = {{1 - 2 * (y * y + z * z), 2 * (x * y - w * z), 2 * (x * z + w * y)},
                            {2 * (x * y + w * z), 1 - 2 * (x * x + z * z), 2 * (y * z - w * x)},
                            {2 * (x * z - w * y), 2 * (y * z + w * x), 1 - 2 * (x * x + y * y)}};
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) m.data[i][j] = static_cast<float>(R[i][j]);
}

Matrix homogeneous(const Pos& p) {
    Matrix m = blank(4);
    m.data[0][3] = p.x;
    m.data[1][3] = p.y;
    m.data[2][3] = p.z;
    m.data[3][3] = 1.0f;
    return m;
}

// Angles in (-pi, -3.13) come back near +pi: callers rely on this band.
float wrap_euler(double v) { return static_cast<float>(v < ALGO_EULER_WRAP ? v + 6.283185307179586 : v); }

Matrix elementary(int axis, float angle) {
    Matrix m = blank(4);
    const float c = std::cos(angle), s = std::sin(angle);
    const int i = (axis + 1) % 3, j = (axis + 2) % 3;
    m.data[axis][axis] = 1.0f;
    m.data[i][i] = c;
    m.data[i][j] = -s;
    m.data[j][i] = s;
    m.data[j][j] = c;
    m.data[3][3] = 1.0f;
    return m;
}

}  // namespace

namespace algo {
Matrix matrix_eye() {
    Matrix m = blank(4);
    for (int i = 0; i < 4; ++i) m.data[i][i] = 1.0f;
    return m;
}
}  // namespace algo

extern "C" {

KX_API Euler matrix_to_euler(Matrix m) {
    const double r00 = m.data[0][0], r01 = m.data[0][1], r10 = m.data[1][0], r11 = m.data[1][1];
    const double r20 = m.data[2][0], r21 = m.data[2][1], r22 = m.data[2][2];
    double rx, rz;
    const double ry = std::atan2(-r20, std::sqrt(r00 * r00 + r10 * r10));
    if (r20 > ALGO_GIMBAL_LIMIT) {
        rx = -std::atan2(r01, r11);
        rz = 0;
    } else if (r20 < -ALGO_GIMBAL_LIMIT) {
        rx = std::atan2(r01, r11);
        rz = 0;
    } else {
        rx = std::atan2(r21, r22);
        rz = std::atan2(r10, r00);
    }
    return Euler{wrap_euler(rx), wrap_euler(ry), wrap_euler(rz)};
}

KX_API Quat matrix_to_quat(Matrix m) {
    const double r00 = m.data[0][0], r01 = m.data[0][1], r02 = m.data[0][2];
    const double r10 = m.data[1][0], r11 = m.data[1][1], r12 = m.data[1][2];
    const double r20 = m.data[2][0], r21 = m.data[2][1], r22 = m.data[2][2];
    const double tr = r00 + r11 + r22;
    double w, x, y, z;
    if (tr > 0) {
        const double s = 2.0 * std::sqrt(tr + 1.0);
        w = 0.25 * s;
        x = (r21 - r12) / s;
        y = (r02 - r20) / s;
        z = (r10 - r01) / s;
    } else if (r00 > r11 && r00 > r22) {
        const double s = 2.0 * std::sqrt(1.0 + r00 - r11 - r22);
        w = (r21 - r12) / s;
        x = 0.25 * s;
        y = (r01 + r10) / s;
        z = (r02 + r20) / s;
    } else if (r11 > r22) {
        const double s = 2.0 * std::sqrt(1.0 + r11 - r00 - r22);
        w = (r02 - r20) / s;
        x = (r01 + r10) / s;
        y = 0.25 * s;
        z = (r12 + r21) / s;
    } else {
        const double s = 2.0 * std::sqrt(1.0 + r22 - r00 - r11);
        w = (r10 - r01) / s;
        x = (r02 + r20) / s;
        y = (r12 + r21) / s;
        z = 0.25 * s;
    }
    return Quat{static_cast<float>(w), static_cast<float>(x), static_cast<float>(y), static_cast<float>(z)};
}

KX_API Matrix euler_to_matrix(float rx, float ry, float rz) {
    Matrix m = blank(3);
    put_rotation(m, rx, ry, rz);
    return m;
}

KX_API Quat euler_to_quat(float rx, float ry, float rz) {
    const double cx = std::cos(rx * 0.5), sx = std::sin(rx * 0.5), cy = std::cos(ry * 0.5);
    const double sy = std::sin(ry * 0.5), cz = std::cos(rz * 0.5), sz = std::sin(rz * 0.5);
    return Quat{static_cast<float>(cx * cy * cz + sx * sy * sz), static_cast<float>(sx * cy * cz - cx * sy * sz),
                static_cast<float>(cx * sy * cz + sx * cy * sz), static_cast<float>(cx * cy * sz - sx * sy * cz)};
}

KX_API Matrix quat_to_matrix(Quat q) {
    Matrix m = blank(3);
    put_quat_rotation(m, q);
    return m;
}

KX_API Euler quat_to_euler(Quat q) { return matrix_to_euler(quat_to_matrix(q)); }

KX_API Matrix pose_euler_to_transformation_matrix(Pose pose) {
    Matrix m = homogeneous(pose.position);
    put_rotation(m, pose.euler.rx, pose.euler.ry, pose.euler.rz);
    return m;
}

KX_API Matrix pose_quat_to_transformation_matrix(Pose pose) {
    Matrix m = homogeneous(pose.position);
    put_quat_rotation(m, pose.quaternion);
    return m;
}

KX_API Pose transformation_matrix_to_pose(Matrix m) {
    Pose p{};
    p.position = Pos{m.data[0][3], m.data[1][3], m.data[2][3]};
    p.euler = matrix_to_euler(m);
    p.quaternion = matrix_to_quat(m);
    return p;
}

KX_API Matrix matrix_inv_coordinate_system(Matrix m) {
    // Cofactors over the determinant, so a rotation part that is not quite
    // orthonormal is still inverted exactly.
    double r[3][3];
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) r[i][j] = m.data[i][j];
    double c[3][3];
    c[0][0] = r[1][1] * r[2][2] - r[1][2] * r[2][1];
    c[0][1] = r[0][2] * r[2][1] - r[0][1] * r[2][2];
    c[0][2] = r[0][1] * r[1][2] - r[0][2] * r[1][1];
    c[1][0] = r[1][2] * r[2][0] - r[1][0] * r[2][2];
    c[1][1] = r[0][0] * r[2][2] - r[0][2] * r[2][0];
    c[1][2] = r[0][2] * r[1][0] - r[0][0] * r[1][2];
    c[2][0] = r[1][0] * r[2][1] - r[1][1] * r[2][0];
    c[2][1] = r[0][1] * r[2][0] - r[0][0] * r[2][1];
    c[2][2] = r[0][0] * r[1][1] - r[0][1] * r[1][0];
    const double det = r[0][0] * c[0][0] + r[0][1] * c[1][0] + r[0][2] * c[2][0];
    Matrix out = blank(4);
    for (int i = 0; i < 3; ++i) {
        double t = 0;
        for (int j = 0; j < 3; ++j) {
            const double v = c[i][j] / det;
            out.data[i][j] = static_cast<float>(v);
            t -= v * m.data[j][3];
        }
        out.data[i][3] = static_cast<float>(t);
    }
    out.data[3][3] = 1.0f;
    return out;
}

KX_API Matrix matrix_m(Matrix a, Matrix b) {
    Matrix out{};
    out.irow = a.irow;
    out.iline = b.iline;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) {
            double s = 0;
            for (int k = 0; k < 4; ++k) s += static_cast<double>(a.data[i][k]) * b.data[k][j];
            out.data[i][j] = static_cast<float>(s);
        }
    return out;
}

KX_API Matrix matrix_inv(Matrix m) {
    // A 3x3-marked matrix is inverted as 3x3; anything else as 4x4. A
    // singular matrix gives all zeros.
    const int n = (m.irow == 3 && m.iline == 3) ? 3 : 4;
    double a[16] = {}, inv[16] = {};
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j) a[i * 4 + j] = m.data[i][j];
    Matrix out{};
    out.irow = m.irow;
    out.iline = m.iline;
    if (!algo::gauss_jordan_inverse(a, inv, n, 4)) return out;
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j) out.data[i][j] = static_cast<float>(inv[i * 4 + j]);
    return out;
}

KX_API Quat quaternion_interpolation(Quat q0, Quat q1, float theta, float phi) {
    const float a = std::sin(theta - phi), b = std::sin(phi), s = std::sin(theta);
    return Quat{(a * q0.w + b * q1.w) / s, (a * q0.x + b * q1.x) / s, (a * q0.y + b * q1.y) / s,
                (a * q0.z + b * q1.z) / s};
}

KX_API Matrix rotx(float angle) { return elementary(0, angle); }
KX_API Matrix roty(float angle) { return elementary(1, angle); }
KX_API Matrix rotz(float angle) { return elementary(2, angle); }

KX_API void matrix_m_dim7(const float a[7][7], const float b[7][7], float out[7][7]) {
    float r[7][7];
    for (int i = 0; i < 7; ++i)
        for (int j = 0; j < 7; ++j) {
            float s = 0;
            for (int k = 0; k < 7; ++k) s += a[i][k] * b[k][j];
            r[i][j] = s;
        }
    for (int i = 0; i < 7; ++i)
        for (int j = 0; j < 7; ++j) out[i][j] = r[i][j];
}

KX_API int matrix_inv_dim7(const float a[7][7], float out[7][7]) {
    float r[7][7];
    if (!algo::gauss_jordan_inverse(&a[0][0], &r[0][0], 7, 7)) return -1;
    for (int i = 0; i < 7; ++i)
        for (int j = 0; j < 7; ++j) out[i][j] = r[i][j];
    return 0;
}

KX_API double find_nearest_joint(double ref, double* cand, double* margin, double min, double max) {
    return algo::nearest_equivalent(ref, cand, margin, min, max);
}

KX_API int find_min_index(const double* values, int n) {
    if (n <= 1) return 0;
    int best = 0;
    for (int i = 1; i < n; ++i)
        if (values[i] < values[best]) best = i;
    return best;
}

}  // extern "C"
