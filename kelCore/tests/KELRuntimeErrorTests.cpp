#include <KELRuntimeError.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <type_traits>

namespace kel {

namespace {

static_assert(std::is_base_of_v<std::runtime_error, KELRuntimeError>);
static_assert(std::has_virtual_destructor_v<KELRuntimeError>);
static_assert(sizeof(KELRuntimeError) == sizeof(std::runtime_error), "no members of its own");
static_assert(std::is_constructible_v<KELRuntimeError, const std::string&>);

TEST(AKELRuntimeError, HasItsMessageUnchanged) {
    for (const char* message : {"", "[text] [ Pointer is null ]", "two\nlines", "50 % of \"it\""}) {
        EXPECT_STREQ(KELRuntimeError(message).what(), message);
    }
}

TEST(AKELRuntimeError, IsCaughtAsARuntimeError) {
    try {
        throw KELRuntimeError("message");
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "message");
        EXPECT_NE(dynamic_cast<const KELRuntimeError*>(&error), nullptr);
    }
}

} // namespace
} // namespace kel
