/// Random sequences of operations on an element, compared step by step with a model of it.
///
/// An operation is a kind and two small numbers, whose meaning depends on the kind; smaller numbers
/// are simpler, so that a failing sequence shrinks to a simple one. It is printed as the braced
/// list that it is in C++, so that the output of a failure can be pasted into a test.
#pragma once

#include <CapturingWriter.h>

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <cstdlib>
#include <exception>
#include <ostream>
#include <string>
#include <vector>

namespace kel::test {

/// One call on an element.
/// @tparam Kind an enumeration with an overload of `const char* NameOf(Kind)` and values from 0 on;
/// the last one is `Count`
template <typename Kind>
struct Operation {
    Kind kind{};
    unsigned first = 0;
    unsigned second = 0;

    friend std::ostream& operator<<(std::ostream& out, const Operation& operation) {
        return out << "{" << NameOf(operation.kind) << ", " << operation.first << ", "
                   << operation.second << "}";
    }
};

template <typename Kind>
using Operations = std::vector<Operation<Kind>>;

/// Returns a call as text: its result or its exception, then its log records.
/// @param operation returns the result as text
template <typename Callable>
std::string Observe(Callable operation) {
    const LogCapture log;
    std::string observed;
    try {
        observed = operation();
    } catch (const KELRuntimeError& error) {
        observed = std::string("throws ") + error.what();
    }
    for (const Record& record : log->Records()) {
        observed += "\n  " + std::to_string(static_cast<int>(record.level)) + " " + record.message;
    }
    return observed;
}

/// The call as a model expects it, in the same form.
class Expected {
public:
    Expected& Log(LogLevel level, const std::string& text) {
        m_records += "\n  " + std::to_string(static_cast<int>(level)) + " " + text;
        return *this;
    }

    std::string Returns(const std::string& result) const { return result + m_records; }

    /// Fails with this message, which is logged as well.
    std::string Fails(const std::string& message) const {
        return "throws " + message + m_records + "\n  2 " + message;
    }

private:
    std::string m_records;
};

/// Any operation; every kind is as likely as it is listed.
template <typename Kind>
rc::Gen<Operation<Kind>> AnyOperation(const std::vector<Kind>& kinds) {
    // A range is reduced for sizes below the nominal one.
    const auto number = rc::gen::resize(rc::kNominalSize, rc::gen::inRange(0U, 18U));
    return rc::gen::build<Operation<Kind>>(
        rc::gen::set(&Operation<Kind>::kind, rc::gen::elementOf(kinds)),
        rc::gen::set(&Operation<Kind>::first, number),
        rc::gen::set(&Operation<Kind>::second, number));
}

/// Checks a property of sequences of operations: KEL_SEQUENCES of them, 2000 if that is not set,
/// always the same ones unless KEL_SEQUENCES_SEED is set.
/// @param agree compares element and model for one sequence; returns the difference, or ""
template <typename Kind, typename Property>
void CheckSequences(const std::string& name, const std::vector<Kind>& kinds, Property agree) {
    const char* count = std::getenv("KEL_SEQUENCES");
    const char* seed = std::getenv("KEL_SEQUENCES_SEED");
    const std::string parameters = std::string("max_success=") +
                                   (count != nullptr ? count : "2000") +
                                   " max_size=60 seed=" + (seed != nullptr ? seed : "1");
    setenv("RC_PARAMS", parameters.c_str(), 1);
    EXPECT_TRUE(rc::check(name, [&] {
        const auto operations =
            *rc::gen::container<Operations<Kind>>(AnyOperation(kinds)).as("operations");
        const std::string difference = agree(operations);
        if (!difference.empty()) {
            RC_FAIL(difference);
        }
    }));
}

} // namespace kel::test
