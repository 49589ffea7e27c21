// Who closes libsndfile's handle, when, and how often.

#include "FakeFile.h"

#include <csignal>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace kel::test {
namespace {

using Files = std::vector<SNDFILE*>;

class LibsndfileSourceHandle : public FakeFileTest {};

TEST_F(LibsndfileSourceHandle, IsNotThereBeforeAFileIsOpened) {
    auto source = MakeFakeSource();
    ExpectCalls({}, [&] {
        ExpectRecords({}, [&] {
            source->Release();
            source.reset();
        });
    });
}

TEST_F(LibsndfileSourceHandle, IsClosedOnceByTwoReleases) {
    const auto source = OpenFakeSource();
    ExpectCalls({"sf_close"}, [&] {
        ExpectRecords({}, [&] {
            source->Release();
            source->Release();
        });
    });
    EXPECT_EQ(closings, Files{File()});
}

TEST_F(LibsndfileSourceHandle, IsClosedByTheDestructor) {
    auto source = OpenFakeSource();
    ExpectCalls({"sf_close"}, [&] { ExpectRecords({}, [&] { source.reset(); }); });
    EXPECT_EQ(closings, Files{File()});
}

TEST_F(LibsndfileSourceHandle, IsNotClosedAgainByTheDestructor) {
    auto source = OpenFakeSource();
    source->Release();
    ExpectCalls({}, [&] { source.reset(); });
    EXPECT_EQ(closings, Files{File()});
}

TEST_F(LibsndfileSourceHandle, IsClosedOnceForEachFile) {
    auto source = OpenFakeSource();
    source->Release();
    source->Open(kPath);
    source->Release();
    source->Open(kPath);
    source.reset();
    EXPECT_EQ(closings, (Files{File(0), File(1), File(2)}));
}

TEST_F(LibsndfileSourceHandle, IsGivenUpWhateverTheCloseAnswers) {
    const auto source = OpenFakeSource();
    StandIn().close = [](SNDFILE* /*file*/) {
        return -1;
    };
    ExpectCalls({"sf_close"}, [&] { ExpectRecords({}, [&] { source->Release(); }); });
    EXPECT_FALSE(source->IsMediaOpen());
    ExpectCalls({}, [&] { source->Release(); });
}

TEST_F(LibsndfileSourceHandle, StaysWithARefusedSecondFile) {
    const auto source = OpenFakeSource();
    ExpectCalls({}, [&] { ExpectRefusal(kOpenedTwice, [&] { source->Open(kPath); }); });
    source->Release();
    EXPECT_EQ(closings, Files{File()});
}

TEST_F(LibsndfileSourceHandle, IsNotThereAfterAFailedOpen) {
    auto source = MakeFakeSource();
    StandIn().open = [](const char*, int, SF_INFO*) {
        return nullptr;
    };
    EXPECT_THROW(source->Open(kPath), KELRuntimeError);
    ExpectCalls({}, [&] {
        source->Release();
        source.reset();
    });
}

TEST_F(LibsndfileSourceHandle, IsClosedAfterAnOpenThatFailedHalfway) {
    auto source = MakeFakeSource();
    FailAt("CreateTrack");
    ExpectFailureOf("CreateTrack", [&] { source->Open(kPath); });
    ExpectCalls({"sf_close"}, [&] { source.reset(); });
    EXPECT_EQ(closings, Files{File()});
}

TEST_F(LibsndfileSourceHandle, EndsTheProcessWhenTheCloseOfADestructorThrows) {
    auto source = OpenFakeSource();
    EXPECT_EXIT(
        {
            StandIn().close = [](SNDFILE*) -> int {
                throw std::runtime_error("no close");
            };
            source.reset();
        },
        ::testing::KilledBySignal(SIGABRT), "");
}

TEST_F(LibsndfileSourceHandle, IsNotTouchedByWhatNeedsNoFile) {
    const auto source = OpenFakeSource();
    ExpectCalls({}, [&] {
        source->Interrupt();
        source->ClearInternalBuffer();
        source->SetOutputMediator(nullptr, "", "");
        source->GetManifest();
        source->IsMediaOpen();
        source->IsGrowing();
        source->GetDirection();
        source->GetMetadatas();
        source->GetAvailableOutputs();
        source->GetActivatedOutputs();
        source->ActivateOutputs({});
        source->GetTimeLimits("");
        EXPECT_THROW(source->UpdateConfig(settings), KELRuntimeError);
        EXPECT_THROW(source->SetDirection(MediaSourceDirection::Backward), KELRuntimeError);
    });
}

// A handle of its own to an object, which says when it is let go.
template <typename Object>
std::shared_ptr<Object> Watched(std::shared_ptr<Object> object, const std::string& name) {
    Object* const address = object.get();
    return {address, [object = std::move(object), name](Object* /*address*/) {
                Note(name);
            }};
}

TEST_F(LibsndfileSourceHandle, IsClosedBeforeWhatTheSourceHoldsIsLetGoLastFirst) {
    FrameworkFunctions& answers = FrameworkAnswers();
    answers.createAudioParameters = [](ACodecFamily family) {
        return Watched<IAudioParameters>(RealFramework().createAudioParameters(family),
                                         "audio parameters");
    };
    answers.createTrack = [](auto... arguments) {
        return Watched(RealFramework().createTrack(arguments...), "track");
    };
    // The info does not hold the parameters and the track, so that they are the source's alone.
    answers.createChannelInfo = [](const auto&) {
        return RealFramework().createChannelInfo(
            RealFramework().createTrack(ContentType::Audio, 2, nullptr, TrackLayout::Default));
    };
    answers.createAudioInfo = [](const auto&, const auto& channels, const auto&, const auto&) {
        return Watched(RealFramework().createAudioInfo(nullptr, channels, {}, {}), "audio info");
    };
    answers.getFactory = [](auto kind, const auto& implementation,
                            const auto& type) -> std::shared_ptr<IElementFactory> {
        if (kind != ElementFactoryType::MemoryBlockAllocator) {
            return RealFramework().getFactory(kind, implementation, type);
        }
        return std::make_shared<ElementFactory<ElementFactoryType::MemoryBlockAllocator>>(
            [](const auto&) {
                return Watched<IMemoryBlockAllocator>(std::make_shared<EmptyAllocator>(),
                                                      "allocator");
            });
    };
    const auto factory = std::dynamic_pointer_cast<ElementFactory<ElementFactoryType::AudioSource>>(
        RealFramework().getFactory(ElementFactoryType::AudioSource, "kel.LibsndfileSource",
                                   "WAVE"));
    auto source =
        factory->creator(Watched<IParametersCollectionInstance>(MakeSourceSettings(), "manifest"));
    source->SetInitConfig(Watched<IParametersCollectionInstance>(MakeSourceSettings(), "settings"));
    source->Open(kPath);
    ExpectCalls({"sf_close", "track", "allocator", "audio info", "audio parameters", "settings",
                 "manifest"},
                [&] { source.reset(); });
}

TEST_F(LibsndfileSourceHandle, IsAllThatAReleaseGivesUp) {
    std::weak_ptr<ITrack> track;
    FrameworkAnswers().createTrack = [&track](auto... arguments) {
        auto made = RealFramework().createTrack(arguments...);
        track = made;
        return made;
    };
    std::weak_ptr<IAudioInfo> audioInfo;
    FrameworkAnswers().createAudioInfo = [&audioInfo](auto... arguments) {
        auto made = RealFramework().createAudioInfo(arguments...);
        audioInfo = made;
        return made;
    };
    auto source = OpenFakeSource();
    source->Release();
    EXPECT_FALSE(track.expired());
    EXPECT_FALSE(audioInfo.expired());
    source.reset();
    EXPECT_TRUE(track.expired());
    EXPECT_TRUE(audioInfo.expired());
}

} // namespace
} // namespace kel::test
