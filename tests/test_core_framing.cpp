// Framing of one connection's byte stream: whatever the read boundaries, the
// frames are those of the whole stream read at once.
#include <gtest/gtest.h>

#include <random>

#include "../fuzz/framer_oracle.h"
#include "test_core_util.h"

using kxfuzz::frames_at_once;
using kxfuzz::frames_of;
using kxtest::LogCapture;

namespace {

const std::string kReply = R"({"command":"get_v","v":1})";
const std::string kNext = R"({"command":"get_w","w":2})";
using Frames = std::vector<std::string>;

}  // namespace

TEST(CoreFraming, TheThreeLosingCasesFrameAsOneRead) {
    LogCapture::install(LOG_LEVEL_ERROR);
    // An over-long line whose "\r\n" begins in the next read.
    const std::string longline(kx::Framer::kMaxFrame + 10, 'x');
    std::string s = longline + "\r\n" + kReply + "\r\n";
    EXPECT_EQ(Frames{kReply}, frames_at_once(s));
    EXPECT_EQ(Frames{kReply}, frames_of(s, {longline.size()}));
    EXPECT_EQ(Frames{kReply}, frames_of(s, {longline.size() + 1}));
    EXPECT_EQ(Frames{kReply}, frames_of(s, {100, kx::Framer::kMaxFrame + 1, longline.size() + 1}));
    EXPECT_TRUE(LogCapture::has_line("[thread_socket_receive] frame longer than 65536 bytes dropped\n"));

    // A line shorter than six bytes at the start of a read.
    s = kReply + "\r\nab\r\n" + kNext + "\r\n";
    const Frames three{kReply, "ab", kNext};
    EXPECT_EQ(three, frames_at_once(s));
    EXPECT_EQ(three, frames_of(s, {kReply.size() + 2}));
    s = "\r\n" + kReply + "\r\n";
    EXPECT_EQ((Frames{"", kReply}), frames_of(s, {0, 1}));

    // An unterminated object, then a short remainder: its late "\r\n".
    s = kReply + "\r\n" + kNext + "\r\n";
    EXPECT_EQ((Frames{kReply, kNext}), frames_of(s, {kReply.size()}));
    EXPECT_EQ((Frames{kReply, kNext}), frames_of(s, {kReply.size(), kReply.size() + 1}));
    EXPECT_EQ((Frames{kReply, kNext}), frames_of(s, {kReply.size(), kReply.size() + 1, kReply.size() + 2}));
}

TEST(CoreFraming, ExactLimitAndDropsAreSplitIndependent) {
    LogCapture::install(LOG_LEVEL_ERROR);
    const std::string at_limit(kx::Framer::kMaxFrame, 'y');
    const std::string over(kx::Framer::kMaxFrame + 1, 'z');
    const std::string s = at_limit + "\r\n" + over + "\r\n" + kReply + "\r\n";
    const Frames want{at_limit, kReply};
    EXPECT_EQ(want, frames_at_once(s));
    for (size_t cut : {at_limit.size(), at_limit.size() + 1, at_limit.size() + 2 + over.size(),
                       at_limit.size() + 3 + over.size(), s.size() - 1})
        EXPECT_EQ(want, frames_of(s, {cut})) << cut;
}

// Random streams of short, empty, JSON, '\r'-laden and over-long lines, cut
// at random places: the frames never change.
TEST(CoreFraming, RandomStreamsAndSplits) {
    LogCapture::install(LOG_LEVEL_ERROR);
    std::mt19937 rng(8);
    const std::vector<std::string> pieces{kReply, kNext, "", "a", "\r", "\n", "\r\r", "}", "{", "\n\r",
                                          std::string(kx::Framer::kMaxFrame - 3, 'q')};
    for (int round = 0; round < 300; ++round) {
        std::string s;
        int n = 1 + static_cast<int>(rng() % 12);
        for (int i = 0; i < n; ++i) {
            s += pieces[rng() % pieces.size()];
            if (rng() % 3 == 0) s += "\r\n";
        }
        const Frames want = frames_at_once(s);
        std::vector<size_t> cuts;
        for (size_t at = 0; at < s.size();) {
            at += 1 + rng() % (rng() % 4 == 0 ? 40000 : 8);
            cuts.push_back(at);
        }
        ASSERT_EQ(want, frames_of(s, cuts)) << round;
    }
}
