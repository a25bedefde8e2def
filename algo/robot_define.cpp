// Built-in model data: one plausible arm per geometry family. Every table
// is modified (Craig) DH: row i is RotX(alpha)·TransX(a)·RotZ(q+offset)·TransZ(d),
// the flange is the product of the rows. Each table must satisfy the
// geometry its inverse solver assumes (noted per family).
#include "tovi_int.h"

namespace algo {
namespace {

constexpr bool ALL_EDITIONS[3] = {true, true, true};
constexpr bool PLAIN_ONLY[3] = {true, false, false};

// Six-joint cobot with a spherical wrist and no shoulder or elbow offsets:
// base height d1, upper arm a2, forearm d4, flange d6. In the zero pose
// the upper arm stands up, the forearm reaches out horizontally and the
// flange faces up. Solver: spherical wrist (alpha1 = ±90, alpha2 = 0,
// a4 = a5 = d5 = 0).
constexpr ModelTable AVEN_TABLE = {
    AVEN, 6,
    {0.2405, 0, 0, 0.210, 0, 0.144},
    {0, 0, 0.256, 0, 0, 0},
    {0, -90, 0, 90, -90, 90},
    {0, -90, 0, 0, 90, 0},
    {-178, -130, -135, -178, -128, -360},
    {178, 130, 135, 178, 128, 360},
    {180, 180, 225, 225, 225, 225},
    {600, 600, 600, 600, 600, 600},
    {true, true, true}};

// Small industrial 6R (FK only, no inverse solver for this type).
constexpr ModelTable CALDI_TABLE = {
    CALDI, 6,
    {0.320, 0, 0, 0.300, 0, 0.080},
    {0, 0.030, 0.300, 0.030, 0, 0},
    {0, -90, 0, -90, 90, -90},
    {0, -90, 0, 0, 0, 0},
    {-170, -120, -140, -185, -120, -360},
    {170, 120, 140, 185, 120, 360},
    {180, 180, 180, 225, 225, 225},
    {600, 600, 600, 600, 600, 600},
    {true, true, true}};

// Industrial 6R: shoulder offset a1, upper arm a2, elbow offset a3,
// forearm d4, spherical wrist, flange d6. Solver: spherical wrist.
constexpr ModelTable CALDII_TABLE = {
    CALDII, 6,
    {0.380, 0, 0, 0.340, 0, 0.090},
    {0, 0.050, 0.330, 0.045, 0, 0},
    {0, -90, 0, -90, 90, -90},
    {0, -90, 0, 0, 0, 0},
    {-170, -130, -145, -190, -125, -360},
    {170, 130, 145, 190, 125, 360},
    {180, 180, 180, 225, 225, 225},
    {600, 600, 600, 600, 600, 600},
    {true, true, true}};

// 6R with a lateral shoulder offset d3 (the upper arm sits beside the base
// axis), upper arm a2, elbow offset a3, forearm d4, spherical wrist, flange
// d6. Solver: spherical wrist (the lateral offset gives the left/right arm
// branches).
constexpr ModelTable CALDIII_TABLE = {
    CALDIII, 6,
    {0.300, 0, 0.120, 0.380, 0, 0.080},
    {0, 0, 0.400, 0.020, 0, 0},
    {0, -90, 0, -90, 90, -90},
    {0, -90, 0, 0, 0, 0},
    {-170, -130, -145, -180, -120, -360},
    {170, 130, 145, 180, 120, 360},
    {180, 180, 180, 225, 225, 225},
    {600, 600, 600, 600, 600, 600},
    {true, true, true}};

// Large industrial 6R of the CALDII geometry.
constexpr ModelTable CALDIV_TABLE = {
    CALDIV, 6,
    {0.450, 0, 0, 0.620, 0, 0.100},
    {0, 0.150, 0.610, 0.110, 0, 0},
    {0, -90, 0, -90, 90, -90},
    {0, -90, 0, 0, 0, 0},
    {-170, -120, -140, -190, -125, -360},
    {170, 120, 140, 190, 125, 360},
    {150, 150, 150, 200, 200, 200},
    {400, 400, 400, 500, 500, 500},
    {true, true, true}};

// Three parallel axes (joints 2, 3, 4) and an offset wrist: base height d1,
// upper arm a2, forearm a3, lateral offset d4 along the parallel axes, wrist
// offsets d5 and d6. Three sizes. Solver: parallel axes (alpha1 = ±90,
// alpha2 = alpha3 = 0, alpha4 = ±90, alpha5 = ±90, a0 = a1 = a4 = a5 = 0,
// d2 = d3 = 0).
#define ORLA_TABLE(TYPE, D1, A2, A3, D4, D5, D6, EDITIONS)                     \
    {TYPE, 6,                                                                 \
     {D1, 0, 0, D4, D5, D6},                                                  \
     {0, 0, A2, A3, 0, 0},                                                    \
     {0, -90, 0, 0, -90, 90},                                                 \
     {0, -90, 0, -90, 0, 0},                                                  \
     {-360, -360, -175, -360, -360, -360},                                    \
     {360, 360, 175, 360, 360, 360},                                          \
     {180, 180, 180, 180, 180, 180},                                          \
     {600, 600, 600, 600, 600, 600},                                          \
     {EDITIONS[0], EDITIONS[1], EDITIONS[2]}}

constexpr ModelTable DUMO_TABLE = ORLA_TABLE(DUMO, 0.150, 0.250, 0.210, 0.110, 0.090, 0.080, ALL_EDITIONS);
constexpr ModelTable ESKA_TABLE = ORLA_TABLE(ESKA, 0.160, 0.420, 0.390, 0.130, 0.100, 0.095, PLAIN_ONLY);
constexpr ModelTable GOLT_TABLE = ORLA_TABLE(GOLT, 0.180, 0.610, 0.570, 0.170, 0.120, 0.115, ALL_EDITIONS);
#undef ORLA_TABLE

// Seven-joint S-R-S arm: spherical shoulder (joints 1-3 meet at height d1),
// elbow (joint 4), spherical wrist (joints 5-7); upper arm d3, forearm d5,
// flange d7. Solver: arm-angle parametrisation (all a = 0, d2 = d4 = d6 = 0,
// alphas alternating ±90).
constexpr ModelTable BRIV_TABLE = {
    BRIV, 7,
    {0.267, 0, 0.320, 0, 0.285, 0, 0.120},
    {0, 0, 0, 0, 0, 0, 0},
    {0, -90, 90, -90, 90, -90, 90},
    {0, 0, 0, 0, 0, 0, 0},
    {-178, -130, -178, -135, -178, -128, -360},
    {178, 130, 178, 135, 178, 128, 360},
    {180, 180, 180, 180, 225, 225, 225},
    {600, 600, 600, 600, 600, 600, 600},
    {true, true, true}};

// Seven-joint arm with elbow and wrist link offsets (a3, a4, a6): not S-R-S.
// The elbow stays bent (joint 4 negative). Solver: damped least squares
// with restarts over the redundancy.
constexpr ModelTable FIRU_TABLE = {
    FIRU, 7,
    {0.330, 0, 0.320, 0, 0.380, 0, 0.110},
    {0, 0, 0, 0.080, -0.080, 0, 0.090},
    {0, -90, 90, 90, -90, 90, 90},
    {0, 0, 0, 0, 0, 0, 0},
    {-170, -105, -170, -175, -170, -5, -175},
    {170, 105, 170, -5, 170, 215, 175},
    {150, 150, 150, 150, 180, 180, 180},
    {600, 600, 600, 600, 600, 600, 600},
    {true, false, false}};

// Generic seven-joint arm with small shoulder and elbow offsets (FK only).
constexpr ModelTable UNIVERSAL_TABLE = {
    UNIVERSAL, 7,
    {0.300, 0, 0.350, 0, 0.300, 0, 0.100},
    {0, 0.030, 0, 0.030, 0, 0, 0},
    {0, -90, 90, -90, 90, -90, 90},
    {0, 0, 0, 0, 0, 0, 0},
    {-170, -120, -170, -135, -170, -120, -360},
    {170, 120, 170, 135, 170, 120, 360},
    {180, 180, 180, 180, 180, 180, 180},
    {600, 600, 600, 600, 600, 600, 600},
    {true, true, true}};

constexpr const ModelTable* TABLES[] = {
    &AVEN_TABLE, &BRIV_TABLE, &CALDI_TABLE, &CALDII_TABLE, &CALDIII_TABLE, &DUMO_TABLE,
    &ESKA_TABLE, &FIRU_TABLE, &GOLT_TABLE, &UNIVERSAL_TABLE, &CALDIV_TABLE};

}  // namespace

const ModelTable* model_table(int type) {
    if (type < 0 || type >= static_cast<int>(sizeof TABLES / sizeof TABLES[0])) return nullptr;
    return TABLES[type];
}

double sensor_thickness(int sensor) {
    // _P is the plain edition; the force editions carry a sensor flange.
    switch (sensor) {
        case _QA: return 0.030;
        case _QS: return 0.045;
        default: return 0.0;
    }
}

}  // namespace algo
