/// A stand-in in front of the framework's functions, for failures that its real ones do not have.
///
/// As with libsndfile's stand-in: the test program defines the functions itself, so that the
/// plug-in calls these. Each call is noted in the same list as those of libsndfile, then fails if
/// the test wants that, else the test's own function answers or the real one.
#pragma once

#include <kelCore.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace kel::test {

/// What a call fails with.
struct Failure {
    std::string call;
};

/// Notes a call in SndfileCalls().
/// @throws Failure when it is the call that FailAt named
void Note(const std::string& call);

/// Lets a call fail, as often as it was noted since so many times more: 1 is the next time.
void FailAt(const std::string& call, int occurrence = 1);

/// The framework's functions, as far as the plug-in's registration and its source call them.
struct FrameworkFunctions {
    using Settings = std::shared_ptr<const IParametersCollectionInstance>;
    using Prototype = std::shared_ptr<const IParametersCollectionPrototype>;
    using Metadatas = std::vector<std::shared_ptr<const IMetadata>>;

    std::function<std::shared_ptr<IParametersCollectionPrototype>()> createPrototype;
    std::function<std::shared_ptr<IParametersCollectionInstance>(const Prototype&)> createInstance;
    std::function<Prototype()> getRegistryEntryPrototype;
    std::function<std::string(WrapperFormat)> getLabel;
    std::function<std::string(std::string)> getCoreId;
    std::function<void(std::string, std::string, std::shared_ptr<IElementFactory>, Settings)>
        registerFactory;

    std::function<std::string(const std::wstring&)> convertWideString;
    std::function<std::wstring(std::wstring)> extractFilename;
    std::function<std::shared_ptr<IMemoryBlockAllocator>(const std::string&)> getAllocator;
    std::function<std::shared_ptr<IAudioParameters>(ACodecFamily)> createAudioParameters;
    std::function<std::shared_ptr<ITrackGroup>(std::string)> createTrackGroup;
    std::function<std::shared_ptr<ITrack>(ContentType, std::uint32_t,
                                          std::shared_ptr<const ITrackGroup>, TrackLayout)>
        createTrack;
    std::function<std::shared_ptr<IChannelInfo>(std::shared_ptr<const ITrack>)> createChannelInfo;
    std::function<std::shared_ptr<IAudioInfo>(std::shared_ptr<const IAudioParameters>,
                                              std::shared_ptr<const IChannelInfo>, Metadatas,
                                              std::vector<std::shared_ptr<const IClockInfo>>)>
        createAudioInfo;
    std::function<std::shared_ptr<IMilestone>(std::string)> createMilestone;
    std::function<std::shared_ptr<IElementFactory>(ElementFactoryType, const std::string&,
                                                   const std::string&)>
        getFactory;
    std::function<Settings(ElementFactoryType, const std::string&, const std::string&)> getManifest;

    std::function<std::shared_ptr<IInfoContainer>(std::shared_ptr<const IInfo>,
                                                  std::shared_ptr<const IPackagingInfo>)>
        createInfoContainer;
    std::function<std::shared_ptr<IBuffer>(std::shared_ptr<IMemoryBlockAllocator>,
                                           std::shared_ptr<IMemoryBlock>)>
        createBuffer;
    std::function<std::shared_ptr<IAudioSample>(
        std::shared_ptr<const IAudioParameters>, std::shared_ptr<const IAudioInfo>,
        std::shared_ptr<const IBuffer>, const TimeLimits&, Metadatas)>
        createAudioSample;
    std::function<std::shared_ptr<ISampleContainer>(std::shared_ptr<const ISample>,
                                                    std::shared_ptr<const IPackagingInfo>)>
        createSampleContainer;
};

/// The functions of the real framework.
const FrameworkFunctions& RealFramework();

/// What the test answers itself; empty functions go to the real framework.
FrameworkFunctions& FrameworkAnswers();

/// Forgets all answers, failures and calls, those of libsndfile's stand-in included.
void ResetStandIns();

} // namespace kel::test
