/* Shared by the peripheral and safety-zone tests: scripted replies of arm 0
 * and the last request of a command. */
#ifndef TEST_PERIPH_FIXTURE_H
#define TEST_PERIPH_FIXTURE_H

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

#include "kx_commands_internal.h"
#include "test_cmd_fixture.h"

namespace cmdtest {

class PeriphFixture : public SimFixture {
protected:
    /* Tests shorten the process-wide timeouts; the next test starts from the defaults. */
    void TearDown() override {
        SimFixture::TearDown();
        m_nOutTime = kDefaultOutTime;
        m_nOutTime_max = kDefaultOutTimeMax;
    }
    static constexpr int kDefaultOutTime = 500, kDefaultOutTimeMax = 1000;

    /* The next reply to `command` is this text, ended by "\r\n" unless it is already
     * (several lines: each ended by it). */
    void reply(const std::string& command, const std::string& text) {
        const bool ended = text.size() >= 2 && text.compare(text.size() - 2, 2, "\r\n") == 0;
        sim->script_reply(0, command, ended ? text : text + "\r\n");
    }
    /* The last n request lines received by arm 0 (fewer if there are not n). */
    std::vector<std::string> last_lines(size_t n) {
        std::vector<std::string> all = sim->received(0);
        return std::vector<std::string>(all.end() - static_cast<std::ptrdiff_t>(std::min(n, all.size())), all.end());
    }
    /* The last request line of `command` received by arm 0, or "". */
    std::string last(const std::string& command) {
        auto r = requests(command);
        return r.empty() ? "" : r.back();
    }
};

}  // namespace cmdtest

#endif /* TEST_PERIPH_FIXTURE_H */
