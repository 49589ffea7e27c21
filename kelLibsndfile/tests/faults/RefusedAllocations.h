/// Runs in which allocations are refused, one after the other.
#pragma once

#include <AllocationFaults.h>
#include <Child.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdio>
#include <functional>
#include <iostream>
#include <set>
#include <string>

namespace kel::test {

/// Which allocation is refused.
struct Refusal {
    unsigned number;
    bool lasts;
};

/// What a sweep over all allocations of a run has met.
struct Sweep {
    int refusals = 0;
    std::set<std::string> crashes; ///< where, and at which refusal
    std::set<std::string> losses;  ///< of memory, and at which refusal
};

/// The first refusal on one line, in memory that is there.
inline const char* DescribeRefusal() {
    static char text[96];
    const PlaceOfRefusal place = FirstRefusal();
    std::snprintf(text, sizeof text, "allocation %u of %s", place.number, place.library);
    return text;
}

/// What an attempt answers when nothing was refused and nothing is wrong.
constexpr const char* kUndisturbed = "undisturbed";

/// Refuses one allocation after the other until a run has no more of them.
/// @param name what the sweep is called where its counts are printed
/// @param attempt made in a process of its own; answers what is wrong, one finding a line; "" if
/// nothing is, or kUndisturbed
inline Sweep RefuseEach(const std::string& name,
                        const std::function<std::string(Refusal)>& attempt) {
    constexpr unsigned kEnough = 4000;
    Sweep sweep;
    for (const bool lasts : {false, true}) {
        const std::string tail = lasts ? ", and all after it" : "";
        bool isOver = false;
        for (unsigned number = 1; !isOver; ++number) {
            SCOPED_TRACE("allocation " + std::to_string(number) + tail);
            const ChildResult result = RunInChild([&] {
                CrashDetails() = DescribeRefusal;
                std::cerr.rdbuf(nullptr); // where records go for which there is no memory
                return attempt({number, lasts});
            });
            isOver = result.text == kUndisturbed || number == kEnough;
            if (!result.crashedIn.empty()) {
                sweep.crashes.insert(result.crashedIn + " at " + result.details + tail);
            } else if (result.text.rfind("lost: ", 0) == 0) {
                sweep.losses.insert(result.text.substr(6) + tail);
            } else if (!isOver) {
                EXPECT_EQ(result.text, "");
            }
            EXPECT_LT(number, kEnough) << "the run takes memory on and on";
            ++sweep.refusals;
        }
        --sweep.refusals; // nothing was refused at last
    }
    std::cout << name << ": " << sweep.refusals << " refusals, " << sweep.crashes.size()
              << " places of crashes\n";
    return sweep;
}

/// True if a run went as it should up to its last call, and that failed for want of memory.
inline bool IsCutShort(const std::string& text, const std::string& undisturbed) {
    const std::size_t lastLine = text.rfind('\n', text.size() - 2) + 1;
    if (text.empty() || text.back() != '\n' ||
        text.compare(0, lastLine, undisturbed, 0, lastLine) != 0) {
        return false;
    }
    const std::string line = text.substr(lastLine);
    const std::string name = line.substr(0, line.find(' '));
    if (undisturbed.compare(lastLine, name.size(), name) != 0) {
        return false;
    }
    if (line == name + " has no memory\n") {
        return true;
    }
    for (const char* reason :
         {"can not implement ", "Unable to open file \"", "[could not get a memory block of "}) {
        if (line.find(std::string(" fails: ") + reason) != std::string::npos ||
            line.find(std::string(" fails: [") + reason) != std::string::npos) {
            return true;
        }
    }
    return false;
}

/// What an attempt finds.
class Findings {
public:
    void Require(bool condition, const std::string& text) {
        if (!condition) {
            m_text += text + "\n";
        }
    }

    /// What it answers.
    /// @param refused how many allocations were
    /// @param left see LeftSince
    std::string Answer(unsigned refused, const std::string& left) const {
        if (!m_text.empty()) {
            return m_text + left;
        }
        if (!left.empty()) {
            return "lost: " + left + "at " + DescribeRefusal();
        }
        return refused == 0 ? kUndisturbed : "";
    }

private:
    std::string m_text;
};

} // namespace kel::test
