#include <KELRuntimeError.h>

#include <gtest/gtest.h>

#include <stdexcept>

namespace kel {

namespace {

static_assert(sizeof(KELRuntimeError) == sizeof(std::runtime_error), "no members of its own");

TEST(AKELRuntimeError, IsARuntimeErrorWithItsMessageUnchanged) {
    for (const char* message : {"", "[text] [ Pointer is null ]", "two\nlines", "50 % of \"it\""}) {
        try {
            throw KELRuntimeError(message);
        } catch (const std::runtime_error& error) {
            EXPECT_STREQ(error.what(), message);
        }
    }
}

} // namespace
} // namespace kel
