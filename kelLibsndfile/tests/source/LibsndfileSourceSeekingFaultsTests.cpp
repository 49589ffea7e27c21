// Seeking, call by call: what libsndfile is asked for, and what its answers lead to.

#include "FakeFile.h"

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

namespace kel::test {
namespace {

constexpr EditRate kRate{44100, 1};

const std::string kOtherRate =
    "[LibsndfileSource::GotoTimeOffset - must use same EditRate as the source TimeLimits]";

class LibsndfileSourceSeekingFaults : public FakeFileTest {
protected:
    using Seek = std::tuple<SNDFILE*, sf_count_t, int>;

    // Lets sf_seek answer this number, whatever it is asked for.
    void Reach(sf_count_t frame) {
        StandIn().seek = [this, frame](SNDFILE* file, sf_count_t frames, int whence) {
            seeks.emplace_back(file, frames, whence);
            return frame;
        };
    }

    void ExpectRefused(const std::string& message, std::int64_t number, const EditRate& rate) {
        ExpectRefusal(message, [&] { source->GotoTimeOffset(Frames(number, rate), ""); });
    }

    std::vector<Seek> seeks;
    std::shared_ptr<IAudioSource> source;
};

TEST_F(LibsndfileSourceSeekingFaults, SeeksOnceFromTheStartOfTheFile) {
    source = OpenFakeSource();
    Reach(77);
    ExpectCalls({"sf_seek"}, [&] { source->GotoTimeOffset(Frames(77, kRate), ""); });
    EXPECT_EQ(seeks, (std::vector<Seek>{{File(), 77, SEEK_SET}}));
}

TEST_F(LibsndfileSourceSeekingFaults, AnswersWhereLibsndfileSaysItIs) {
    source = OpenFakeSource();
    for (const sf_count_t reached : {0, 99, 101, 1000}) {
        Reach(reached);
        const MediaTime time(EditRate(88200, 2), 100, nullptr);
        ExpectRecords({}, [&] {
            const MediaTime result = source->GotoTimeOffset(time, "");
            EXPECT_EQ(result.GetTimeNumber(), reached);
            EXPECT_EQ(result.GetEditRate(), EditRate(88200, 2));
        });
    }
}

TEST_F(LibsndfileSourceSeekingFaults, FailsWhereLibsndfileDoes) {
    source = OpenFakeSource();
    for (const sf_count_t reached : {sf_count_t{-1}, sf_count_t{-2}, INT64_MIN}) {
        Reach(reached);
        ExpectCalls({"sf_seek"}, [&] {
            ExpectRefused("[LibsndfileSource::GotoTimeOffset - returned frame offset < 0]", 5,
                          kRate);
        });
    }
    EXPECT_TRUE(source->IsMediaOpen());
}

TEST_F(LibsndfileSourceSeekingFaults, FailsWhereLibsndfileGoesPastTheEnd) {
    source = OpenFakeSource();
    for (const sf_count_t reached : {sf_count_t{1001}, INT64_MAX}) {
        Reach(reached);
        ExpectCalls({"sf_seek"}, [&] {
            ExpectRefused(
                "[LibsndfileSource::GotoTimeOffset - returned frame offset past file end!]", 5,
                kRate);
        });
    }
    EXPECT_TRUE(source->IsMediaOpen());
}

TEST_F(LibsndfileSourceSeekingFaults, TriesAlsoWhereTheFileSaysThatItCanNotSeek) {
    info.seekable = 0;
    source = OpenFakeSource();
    Reach(-1);
    ExpectRefused("[LibsndfileSource::GotoTimeOffset - returned frame offset < 0]", 5, kRate);
    Reach(5);
    EXPECT_EQ(source->GotoTimeOffset(Frames(5, kRate), "").GetTimeNumber(), 5);
}

TEST_F(LibsndfileSourceSeekingFaults, DoesNotSeekToWhatItRefuses) {
    source = OpenFakeSource();
    ExpectCalls({}, [&] {
        ExpectRefused(kOtherRate, 5, {48000, 1});
        ExpectRefused(kOtherRate, 5, {0, 0});
        ExpectRefused("[LibsndfileSource::GotoTimeOffset - mediaTime.GetTimeNumber() < 0]", -1,
                      kRate);
        ExpectRefused("[LibsndfileSource::GotoTimeOffset - mediaTime.GetTimeNumber() past file "
                      "end!]",
                      1001, kRate);
    });
    source->Release();
    ExpectCalls({}, [&] {
        ExpectRefused("[Cannot call GotoTimeOffset without an opened file]", 5, kRate);
    });
}

TEST_F(LibsndfileSourceSeekingFaults, LeavesTheStampsWhetherItFailsOrNot) {
    source = OpenFakeSource();
    UseBufferDoubles();
    EXPECT_EQ(StampOf(source->GetSample()), (Stamp{0, 1024, 8192}));
    for (const sf_count_t reached : {sf_count_t{-1}, sf_count_t{1001}}) {
        Reach(reached);
        EXPECT_THROW(source->GotoTimeOffset(Frames(5, kRate), ""), KELRuntimeError);
    }
    Reach(5);
    source->GotoTimeOffset(Frames(5, kRate), "");
    EXPECT_EQ(StampOf(source->GetSample()), (Stamp{1024, 1024, 8192}));
}

TEST_F(LibsndfileSourceSeekingFaults, TakesEveryNullRateOfAFileWithoutARate) {
    info.samplerate = 0;
    source = OpenFakeSource();
    Reach(5);
    for (const EditRate& rate : {EditRate(0, 0), EditRate(0, 1), EditRate(44100, 0)}) {
        ExpectRecords({}, [&] {
            EXPECT_EQ(source->GotoTimeOffset(Frames(5, rate), "").GetEditRate(), rate);
        });
    }
    ExpectRefused(kOtherRate, 5, kRate);
    ExpectRefused(kOtherRate, 5, {1, 4294967295}); // almost nothing, but not null
}

TEST_F(LibsndfileSourceSeekingFaults, ComparesRatesAsQuotientsNotAsNumbers) {
    info.samplerate = 1;
    source = OpenFakeSource();
    Reach(5);
    for (const EditRate& rate : {EditRate(4294967295, 4294967295), EditRate(4294967294, 4294967295),
                                 EditRate(16668, 16667), EditRate(16666, 16667)}) {
        EXPECT_EQ(source->GotoTimeOffset(Frames(5, rate), "").GetEditRate(), rate);
    }
    for (const EditRate& rate : {EditRate(16667, 16666), EditRate(16665, 16666), EditRate(2, 1)}) {
        ExpectRefused(kOtherRate, 5, rate);
    }
}

} // namespace
} // namespace kel::test
