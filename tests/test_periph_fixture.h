/* Shared by the peripheral and safety-zone tests: scripted replies of arm 0
 * and the last request of a command. */
#ifndef TEST_PERIPH_FIXTURE_H
#define TEST_PERIPH_FIXTURE_H

#include <string>

#include "kx_commands_internal.h"
#include "test_cmd_fixture.h"

namespace cmdtest {

class PeriphFixture : public SimFixture {
protected:
    /* The next reply to `command` is this text, ended by "\r\n" unless it is already
     * (several lines: each ended by it). */
    void reply(const std::string& command, const std::string& text) {
        const bool ended = text.size() >= 2 && text.compare(text.size() - 2, 2, "\r\n") == 0;
        sim->script_reply(0, command, ended ? text : text + "\r\n");
    }
    /* The last request line of `command` received by arm 0, or "". */
    std::string last(const std::string& command) {
        auto r = requests(command);
        return r.empty() ? "" : r.back();
    }
};

}  // namespace cmdtest

#endif /* TEST_PERIPH_FIXTURE_H */
