// What the elements do when libsndfile's functions answer errors: each call of a function does, by
// itself and with all that follow it; the others are libsndfile's own.

#include "ComparedRuns.h"

#include <FakeSndfile.h>

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>

namespace kel::test {
namespace {

// Which calls of a function answer an error.
class Turn {
public:
    Turn(int number, bool lasts) : m_number(number), m_lasts(lasts) {}

    // True if it is the turn of this call.
    bool Comes() {
        ++m_calls;
        const bool comes = m_calls == m_number || (m_lasts && m_calls > m_number);
        m_hasCome = m_hasCome || comes;
        return comes;
    }

    // It comes no more.
    void End() {
        m_number = 0;
        m_lasts = false;
    }

    bool HasCome() const { return m_hasCome; }

private:
    int m_number;
    bool m_lasts;
    int m_calls = 0;
    bool m_hasCome = false;
};

// Counts how often each handle is opened and closed.
class Handles {
public:
    void Watch(SndfileFunctions& functions) {
        const auto open = functions.open ? functions.open : RealSndfile().open;
        const auto close = functions.close ? functions.close : RealSndfile().close;
        functions.open = [this, open](const char* path, int mode, SF_INFO* info) {
            SNDFILE* file = open(path, mode, info);
            if (file != nullptr && !m_open.insert(file).second) {
                m_findings += "a handle is opened twice\n";
            }
            return file;
        };
        functions.close = [this, close](SNDFILE* file) {
            if (m_open.erase(file) == 0) {
                m_findings += "a handle is closed that is not open\n";
                return 0;
            }
            return close(file);
        };
    }

    std::string Findings() const {
        return m_findings + (m_open.empty() ? "" : "a handle is not closed\n");
    }

private:
    std::set<SNDFILE*> m_open;
    std::string m_findings;
};

// Ways in which libsndfile's functions fail, by what they are called.
using Fault = std::function<void(SndfileFunctions&, std::shared_ptr<Turn>)>;

const char* NoWords(SNDFILE* /*file*/) {
    return nullptr;
}

void FailToOpen(SndfileFunctions& functions, const std::shared_ptr<Turn>& turn) {
    functions.open = [turn](const char* path, int mode, SF_INFO* info) {
        return turn->Comes() ? nullptr : RealSndfile().open(path, mode, info);
    };
}

void TellErrors(SndfileFunctions& functions, const std::shared_ptr<Turn>& turn) {
    functions.error = [turn](SNDFILE* file) {
        return turn->Comes() ? SF_ERR_SYSTEM : RealSndfile().error(file);
    };
}

Fault ReadOnly(sf_count_t part) {
    return [part](SndfileFunctions& functions, const std::shared_ptr<Turn>& turn) {
        functions.readf_float = [turn, part](SNDFILE* file, float* values, sf_count_t frames) {
            return RealSndfile().readf_float(file, values,
                                             turn->Comes() ? frames * part / 2 : frames);
        };
    };
}

Fault SeekTo(sf_count_t answer) {
    return [answer](SndfileFunctions& functions, const std::shared_ptr<Turn>& turn) {
        functions.seek = [turn, answer](SNDFILE* file, sf_count_t frame, int whence) {
            return turn->Comes() ? answer : RealSndfile().seek(file, frame, whence);
        };
    };
}

// @param half whether half of the bytes are written, or none
// @param answer in place of the number of bytes, unless it is 0
Fault WriteOnly(bool half, sf_count_t answer) {
    return [=](SndfileFunctions& functions, const std::shared_ptr<Turn>& turn) {
        functions.write_raw = [=](SNDFILE* file, const void* bytes, sf_count_t count) {
            if (!turn->Comes()) {
                return RealSndfile().write_raw(file, bytes, count);
            }
            const sf_count_t written = half ? RealSndfile().write_raw(file, bytes, count / 2) : 0;
            return answer != 0 ? answer : written;
        };
    };
}

const std::map<std::string, Fault> kSourceFaults{
    {"open", FailToOpen},
    {"open without words",
     [](SndfileFunctions& functions, const std::shared_ptr<Turn>& turn) {
         FailToOpen(functions, turn);
         functions.strerror = NoWords;
     }},
    {"read of nothing", ReadOnly(0)},
    {"read of half", ReadOnly(1)},
    {"error", TellErrors},
    {"error without words",
     [](SndfileFunctions& functions, const std::shared_ptr<Turn>& turn) {
         TellErrors(functions, turn);
         functions.strerror = NoWords;
     }},
    {"seek", SeekTo(-1)},
    {"seek too far", SeekTo(kFileFrames + 1)},
    {"close", [](SndfileFunctions& functions, const std::shared_ptr<Turn>& turn) {
         functions.close = [turn](SNDFILE* file) {
             const int closed = RealSndfile().close(file);
             return turn->Comes() ? -1 : closed;
         };
     }}};

const std::map<std::string, Fault> kSinkFaults{
    {"format check",
     [](SndfileFunctions& functions, const std::shared_ptr<Turn>& turn) {
         functions.format_check = [turn](const SF_INFO* info) {
             return turn->Comes() ? 0 : RealSndfile().format_check(info);
         };
     }},
    {"open", FailToOpen},
    {"open without words", kSourceFaults.at("open without words")},
    {"write of nothing", WriteOnly(false, 0)},
    {"write of half", WriteOnly(true, 0)},
    {"write that answers -1", WriteOnly(false, -1)},
    {"close", kSourceFaults.at("close")}};

Disturbance MakeDisturbance(const Fault& fault, int number, bool lasts) {
    const auto turn = std::make_shared<Turn>(number, lasts);
    const auto handles = std::make_shared<Handles>();
    const auto begin = [=] {
        fault(StandIn(), turn);
        handles->Watch(StandIn());
    };
    return {begin, [turn] { turn->End(); }, [turn] { return turn->HasCome(); },
            [handles] {
                return handles->Findings();
            }};
}

void DisturbAll(ComparedRuns& runs, const std::map<std::string, Fault>& faults) {
    for (const auto& [name, fault] : faults) {
        for (const bool lasts : {false, true}) {
            runs.DisturbEach(name, [&fault = fault, lasts](int number) {
                return MakeDisturbance(fault, number, lasts);
            });
        }
    }
}

class EachSndfileCall : public testing::TestWithParam<Kind> {
protected:
    // What the stand-in notes takes no memory later.
    EachSndfileCall() { SndfileCalls().reserve(10000); }
};

class EachSndfileCallOfASource : public EachSndfileCall {};
class EachSndfileCallOfASink : public EachSndfileCall {};

TEST_P(EachSndfileCallOfASource, AnswersAnErrorWithoutHarm) {
    SourceRuns runs(GetParam());
    DisturbAll(runs, kSourceFaults);
    const Outcomes& outcomes = runs.Tell("a source of " + GetParam().name);
    // By the element's own rules nothing read is the end, and fewer frames are a shorter sample.
    EXPECT_EQ(outcomes.untold,
              (std::set<std::string>{"read of half in read", "read of nothing in read"}));
}

TEST_P(EachSndfileCallOfASink, AnswersAnErrorWithoutHarm) {
    SinkRuns runs(GetParam());
    DisturbAll(runs, kSinkFaults);
    EXPECT_EQ(runs.Tell("a sink of " + GetParam().name).untold, std::set<std::string>());
}

INSTANTIATE_TEST_SUITE_P(Of, EachSndfileCallOfASource, testing::ValuesIn(Kinds()), NameOfKind);
INSTANTIATE_TEST_SUITE_P(Of, EachSndfileCallOfASink, testing::ValuesIn(Kinds()), NameOfKind);

} // namespace
} // namespace kel::test
