#include "Log.h"

#include "fakes/CapturedStderr.h"

#include <gtest/gtest.h>

namespace mnemora::test {
namespace {

TEST(Log, WhatIsCapturedForgesNoLineAndCommandsNoTerminal) {
    const CapturedStderr output;
    logInfo("a\n[mnemora][error] forged\r\x1B[2Jb\tc\x7F");
    logError("\u009B31mred\u0085 caf\u00E9 \u00A0\u6F22");
    logError("a\u2028b\u2029c\u202Ed\u2066e\u2069 \u2027\u20AC\u2065");
    logInfo("\xC2");
    logInfo("\xE2\x80");
    logInfo("");
    EXPECT_EQ(output.text(), "[mnemora] a [mnemora][error] forged  [2Jb c \n"
                             "[mnemora][error]  31mred  caf\u00E9 \u00A0\u6F22\n"
                             "[mnemora][error] a b c d e  \u2027\u20AC\u2065\n"
                             "[mnemora] \xC2\n"
                             "[mnemora] \xE2\x80\n"
                             "[mnemora] \n");
}

} // namespace
} // namespace mnemora::test
