/*
 * kx_sim: a controller simulator that speaks the arm controller's protocol.
 *
 * One Simulator hosts up to five arms. Arm K (1..5; index K-1 in this API)
 * lives at its own loopback address 127.0.0.K, as separate controllers would:
 * it listens for the command connection there and sends its realtime state
 * datagrams from there, so a client tells arms apart by address. It is an independent peer of the
 * client library (it shares no code with src/), usable in-process by tests
 * and examples or through the kx_sim program.
 */
#ifndef KX_SIM_SIMULATOR_H
#define KX_SIM_SIMULATOR_H

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace kxsim {

struct ArmOptions {
    /* Product string reported by "get_arm_software_info", e.g. "AVEN-P",
     * "BRIV-QA", "CALD-QS". The model and edition decide the kinematics. */
    std::string product_version = "AVEN-P";
    int port = -1; /* TCP command port; -1 = Options::base_port */
};

/* Whether the kinematics has a model for this product string ("FIRU-QS":
 * no, FIRU and ESKA come only in the plain edition). A simulator takes any
 * product string, and falls back to the plain geometry of its model. */
bool product_offered(const std::string& product_version);

struct Options {
    std::vector<ArmOptions> arms{ArmOptions{}}; /* 1..5 arms */
    int base_port = 0;           /* every arm's command port (each at its own address); 0 = any free port */
    double time_scale = 1.0;     /* simulated seconds per real second */
    std::string udp_ip = "127.0.0.1"; /* initial realtime push address */
    int udp_port = 8089;         /* initial realtime push port */
    bool push_enabled = true;    /* initial realtime push state */
    int push_cycle = 10;         /* initial push cycle, in 1 ms units of simulated time */
    /* Where the simulator says why it refused something: one line per
     * refusal, "arm K: <command> refused: <reason>", without a line end.
     * Unset: standard error, prefixed "kx_sim: ". */
    std::function<void(const std::string&)> log;
};

class Simulator {
public:
    explicit Simulator(Options options);
    ~Simulator(); /* stops */
    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;

    bool start(); /* binds every arm's port and starts serving; false on failure */
    /* Why start() failed: the address and port it could not listen on, and the system's reason. */
    std::string start_error() const;
    void stop();

    int arm_count() const;
    /* Where arm index 0..arm_count()-1 (arm K = index + 1) listens: its
     * loopback address "127.0.0.K" and its TCP command port. The realtime
     * datagrams of the arm come from the same address. */
    std::string host(int arm) const;
    int port(int arm) const;

    /* ---- observation, for wire-level tests ---- */
    /* Every request line received by the arm, without its "\r\n", in order. */
    std::vector<std::string> received(int arm) const;
    void clear_received(int arm);
    /* Waits (real time) until the arm has received at least n lines. */
    bool wait_received(int arm, size_t n, std::chrono::milliseconds timeout) const;
    /* Number of realtime datagrams pushed by the arm so far. */
    unsigned long long datagrams_sent(int arm) const;

    /* ---- fault injection; each applies to the next `count` replies to
     *      `command` (the request's "command" value; "" = any command) ---- */
    void drop_replies(int arm, const std::string& command, int count = 1);
    void delay_replies(int arm, const std::string& command, std::chrono::milliseconds delay, int count = 1);
    /* Write each reply in pieces of `chunk` bytes with a short pause between. */
    void split_replies(int arm, const std::string& command, size_t chunk, int count = 1);
    /* Answer with exactly these bytes (no terminator added) instead of the normal reply. */
    void script_reply(int arm, const std::string& command, const std::string& raw, int count = 1);
    /* Stop answering anything (true) or resume (false). */
    void set_silent(int arm, bool silent);
    /* Write arbitrary bytes on the arm's command connection now. */
    void send_raw(int arm, const std::string& bytes);
    /* Close the arm's current command connection from the controller side. */
    void close_connection(int arm);
    /* Write only the first `keep` bytes of the reply, then close the
     * connection: orderly, or with a reset (RST, SO_LINGER 0) when `reset`. */
    void cut_replies(int arm, const std::string& command, size_t keep, bool reset, int count = 1);
    /* An endless line: bytes without "\r\n" written on the command connection
     * (about 16 MB/s) from now until flood(arm, false), which ends the line
     * with "\r\n". Replies and events meanwhile are lost inside the line. */
    void flood(int arm, bool on);

    /* ---- state access ---- */
    std::string product_version(int arm) const;
    void set_product_version(int arm, const std::string& product_version);
    /* Current joint angles in degrees (dof entries). */
    std::vector<double> joints(int arm) const;
    /* Whether a planned motion is running. */
    bool moving(int arm) const;
    /* The queued planned motion of the arm sampled every `dt` seconds of
     * simulated time from its start (joints in degrees), without running it. */
    std::vector<std::vector<double>> preview(int arm, double dt) const;
    /* Simulated time at which the last planned motion (or effector move) of the arm ended, and the
     * real steady-clock time at which its completion event was written. */
    std::chrono::steady_clock::time_point last_motion_end(int arm) const;

    /* ---- force sensing, drag teaching, programs ---- */
    /* External wrench pushing on the tool, base frame: Fx, Fy, Fz (N), Mx, My, Mz (N m). */
    void set_external_force(int arm, const std::vector<double>& wrench);
    /* Height (m, base frame) of the stiff surface force-position control
     * presses against; NaN (the default) puts it right at the tool. */
    void set_surface_height(int arm, double z);
    /* The operator's hand while drag teaching: joint rates in deg/s. */
    void set_hand_motion(int arm, const std::vector<double>& joint_rates);
    /* Faults of the next trajectory save: the stream falls silent after
     * `after_points` points (-1: never); point `malformed_at` (1-based, -1:
     * none) carries a "point" that is not an array. */
    void inject_save_faults(int arm, int after_points, int malformed_at);
    /* The next program run stops with an error at this line of its file
     * (1-based, header lines included): no "program_run_finish" follows. An
     * upload acknowledgement that never comes: drop_replies(arm, "download_project"). */
    void fail_program_at(int arm, int line);
    /* The raw bytes of the arm's last program upload (so far, while one arrives). */
    std::string last_upload(int arm) const;
    /* Number of points of the recorded drag-teach path. */
    size_t recorded_points(int arm) const;
    /* Ids of the stored programs. */
    std::vector<int> program_ids(int arm) const;

    /* ---- driving a family from outside ---- */
    /* Applies the family test hook of that name to the arm (the hooks are
     * listed with their families: "external_force", "surface_height",
     * "hand_motion", "save_faults", "fail_program_at", "digital_input",
     * "tool_digital_input", "gripper_object", ...); false when there is no
     * such hook or it refused the arguments. The calls below are its named
     * forms. */
    bool drive(int arm, const std::string& hook, const std::vector<double>& args);

    /* ---- peripherals, driven from outside ---- */
    /* Sets digital input `channel` (1..4) of the arm to `value` (0/1); false
     * when out of range. A tool input: tool_channel 1..2. */
    bool set_digital_input(int arm, int channel, int value);
    bool set_tool_digital_input(int arm, int channel, int value);
    /* Width (gripper position 1..1000) of an object between the gripper's
     * fingers: a pick stops there and holds it (status 2); 0 = nothing, a
     * pick then closes to the end of its route (status 3). */
    void set_gripper_object(int arm, int width);

    struct Impl;

private:
    std::unique_ptr<Impl> impl_;
};

}  // namespace kxsim

#endif /* KX_SIM_SIMULATOR_H */
