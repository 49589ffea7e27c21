// The tree of the element interfaces: who derives from whom and how, and where every conversion
// that a host can make arrives.

#include "Elements.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace kel {

namespace {

using test::SmallSink;
using test::SmallSource;

// A static cast from a base to what derives from it is impossible exactly when the base is virtual
// (or not reached in one way).
template <typename Base, typename Derived, typename = void>
constexpr bool kCanBeCastDown = false;
template <typename Base, typename Derived>
constexpr bool kCanBeCastDown<Base, Derived,
                              std::void_t<decltype(static_cast<Derived*>(std::declval<Base*>()))>> =
    true;

// Public and reached in one way.
template <typename Base, typename Derived>
constexpr bool kIsPublicBase =
    std::is_base_of_v<Base, Derived>&& std::is_convertible_v<Derived*, Base*>;

template <typename Base, typename Derived>
constexpr bool kIsOrdinaryBase = kIsPublicBase<Base, Derived>&& kCanBeCastDown<Base, Derived>;
template <typename Base, typename Derived>
constexpr bool kIsVirtualBase = kIsPublicBase<Base, Derived> && !kCanBeCastDown<Base, Derived>;

static_assert(kIsOrdinaryBase<IBasicControl, ISourceControl>);
static_assert(kIsVirtualBase<ISourceControl, IAudioSourceControl>);
static_assert(kIsVirtualBase<IBasicControl, IAudioSourceControl>, "through the virtual one");
static_assert(kIsOrdinaryBase<IMediaSource, IAudioSource>);
static_assert(kIsOrdinaryBase<IAudioSourceControl, IAudioSource>);
static_assert(kIsPublicBase<ISourceControl, IAudioSource>);
static_assert(kIsPublicBase<IBasicControl, IAudioSource>);

static_assert(kIsVirtualBase<IBasicControl, ISinkControl>);
static_assert(kIsVirtualBase<ISinkControl, IAudioSinkControl>);
static_assert(kIsVirtualBase<IBasicControl, IAudioSinkControl>);
static_assert(kIsOrdinaryBase<IMediaSink, IAudioSink>);
static_assert(kIsVirtualBase<IAudioSinkControl, IAudioSink>);
static_assert(kIsPublicBase<ISinkControl, IAudioSink>);
static_assert(kIsPublicBase<IBasicControl, IAudioSink>);

// The data sides and the control sides know nothing of each other.
static_assert(!std::is_base_of_v<IBasicControl, IMediaSource>);
static_assert(!std::is_base_of_v<IBasicControl, IMediaSink>);
static_assert(!std::is_base_of_v<IMediaSource, IAudioSourceControl>);
static_assert(!std::is_base_of_v<IMediaSink, IAudioSinkControl>);
static_assert(!std::is_base_of_v<IMediaSource, IMediaSink>);

template <typename... Interfaces>
constexpr bool kAreAbstractWithVirtualDestructor =
    ((std::is_abstract_v<Interfaces> && std::has_virtual_destructor_v<Interfaces>)&&...);
static_assert(kAreAbstractWithVirtualDestructor<
              IBasicControl, ISourceControl, IAudioSourceControl, IMediaSource, IAudioSource,
              ISinkControl, IAudioSinkControl, IMediaSink, IAudioSink, IAudioInfo, IAudioParameters,
              IAudioParameters_PCM, IChannelInfo, ITrack, ITrackGroup, IInfoContainer, IAudioSample,
              ISampleContainer, IBuffer, IMemoryBlock, IMemoryBlockAllocator, ICheckInputReport>);

// Interfaces with a public virtual destructor and nothing to implement.
template <typename... Interfaces>
constexpr bool kHaveAVirtualDestructorAlone = ((!std::is_abstract_v<Interfaces> &&
                                                std::has_virtual_destructor_v<Interfaces> &&
                                                std::is_destructible_v<Interfaces> &&
                                                sizeof(Interfaces) == sizeof(void*)) &&
                                               ...);
static_assert(kHaveAVirtualDestructorAlone<IInfo, ISample, IEncodingParameters, IMetadata,
                                           IClockInfo, IPackagingInfo, IStep, IInputMediator,
                                           IOutputMediator, IMilestone>);

// No data: nothing but the pointers to the virtual tables.
static_assert(sizeof(IBasicControl) == sizeof(void*));
static_assert(sizeof(ISourceControl) == sizeof(void*));
static_assert(sizeof(IMediaSource) == sizeof(void*));
static_assert(sizeof(IMediaSink) == sizeof(void*));
static_assert(sizeof(ISinkControl) == sizeof(void*));
static_assert(sizeof(IAudioSourceControl) <= 2 * sizeof(void*));
static_assert(sizeof(IAudioSource) <= 3 * sizeof(void*));
static_assert(sizeof(IAudioSink) <= 3 * sizeof(void*));

/// A control side that an element has beside its audio interfaces: still one IBasicControl.
class IMeteredSinkControl : public virtual ISinkControl {};
class MeteredSink : public IAudioSink, public virtual IMeteredSinkControl {};
static_assert(kIsPublicBase<ISinkControl, MeteredSink>);
static_assert(kIsPublicBase<IBasicControl, MeteredSink>);

class IMeteredSourceControl : public virtual ISourceControl {};
class MeteredSource : public IAudioSource, public IMeteredSourceControl {};
static_assert(kIsPublicBase<ISourceControl, MeteredSource>);
static_assert(kIsPublicBase<IBasicControl, MeteredSource>);

// All interfaces of an element, each found by a run-time cast from one of them.
template <typename... Interfaces>
struct InterfaceList {
    // The element behind each interface, and the one IBasicControl that each one finds.
    template <typename From>
    static void ExpectOneElement(From* from, const void* element, const IBasicControl* control) {
        (ExpectSameBehind(dynamic_cast<Interfaces*>(from), element, control), ...);
    }

    // The same from every interface to every other.
    template <typename Element>
    static void ExpectOneElementFromEach(Element& element) {
        const IBasicControl* const control = &element;
        (ExpectOneElement(static_cast<Interfaces*>(&element), &element, control), ...);
    }

private:
    template <typename Interface>
    static void ExpectSameBehind(Interface* found, const void* element,
                                 const IBasicControl* control) {
        ASSERT_NE(found, nullptr);
        EXPECT_EQ(dynamic_cast<void*>(found), element);
        EXPECT_EQ(dynamic_cast<IBasicControl*>(found), control);
    }
};

using SourceInterfaces =
    InterfaceList<IAudioSource, IMediaSource, IAudioSourceControl, ISourceControl, IBasicControl>;
using SinkInterfaces =
    InterfaceList<IAudioSink, IMediaSink, IAudioSinkControl, ISinkControl, IBasicControl>;

TEST(ASourcesInterfaces, AllLeadToOneElementWithOneBasicControl) {
    SmallSource source;
    SourceInterfaces::ExpectOneElementFromEach(source);
}

TEST(ASinksInterfaces, AllLeadToOneElementWithOneBasicControl) {
    SmallSink sink;
    SinkInterfaces::ExpectOneElementFromEach(sink);
}

TEST(ASourcesInterfaces, BeginWithTheDataSide) {
    SmallSource source;
    IAudioSource* const audio = &source;
    EXPECT_EQ(static_cast<void*>(static_cast<IMediaSource*>(audio)), static_cast<void*>(audio));
    EXPECT_NE(static_cast<void*>(static_cast<IAudioSourceControl*>(audio)),
              static_cast<void*>(audio));
}

TEST(ASinksInterfaces, BeginWithTheDataSide) {
    SmallSink sink;
    IAudioSink* const audio = &sink;
    EXPECT_EQ(static_cast<void*>(static_cast<IMediaSink*>(audio)), static_cast<void*>(audio));
    EXPECT_NE(static_cast<void*>(static_cast<IAudioSinkControl*>(audio)),
              static_cast<void*>(audio));
}

TEST(ASourcesInterfaces, ShareOneManifestAndOneConfiguration) {
    const test::Manifest manifest =
        test::MakeEntry(ElementFactoryType::AudioSource, "test.Source", "WAVE");
    const auto element = std::make_shared<SmallSource>(manifest);
    const std::shared_ptr<IAudioSource> audio = element;
    const std::shared_ptr<IMediaSource> data = audio;
    const std::shared_ptr<IAudioSourceControl> audioControl = audio;
    const std::shared_ptr<ISourceControl> control = audio;
    const std::shared_ptr<IBasicControl> basic = audio;
    for (const test::Manifest& found :
         {audio->GetManifest(), data->GetManifest(), audioControl->GetManifest(),
          control->GetManifest(), basic->GetManifest()}) {
        EXPECT_EQ(found, manifest);
    }
    basic->UpdateConfig(manifest);
    EXPECT_EQ(element->Updated(), manifest);
}

TEST(ASinksInterfaces, ShareOneManifestAndOneConfiguration) {
    const test::Manifest manifest =
        test::MakeEntry(ElementFactoryType::AudioSink, "test.Sink", "WAVE");
    const auto element = std::make_shared<SmallSink>(manifest);
    const std::shared_ptr<IAudioSink> audio = element;
    const std::shared_ptr<IMediaSink> data = audio;
    const std::shared_ptr<IAudioSinkControl> audioControl = audio;
    const std::shared_ptr<ISinkControl> control = audio;
    const std::shared_ptr<IBasicControl> basic = audio;
    for (const test::Manifest& found :
         {audio->GetManifest(), data->GetManifest(), audioControl->GetManifest(),
          control->GetManifest(), basic->GetManifest()}) {
        EXPECT_EQ(found, manifest);
    }
    basic->UpdateConfig(manifest);
    EXPECT_EQ(element->Updated(), manifest);
}

TEST(ASourcesInterfaces, ShareOneOpenMedium) {
    const std::shared_ptr<IAudioSource> source = std::make_shared<SmallSource>();
    const std::shared_ptr<IMediaSource> data = source;
    const std::shared_ptr<ISourceControl> control = source;
    EXPECT_EQ(data->GetSample(), nullptr);
    control->Open(L"take.wav");
    EXPECT_NE(data->GetSample(), nullptr);
    control->Open(L"take.wav");
    data->Release();
    EXPECT_FALSE(control->IsMediaOpen());
}

// Ends its element's life through one of its interfaces.
template <typename Interface, typename Element>
void ExpectEndThrough() {
    auto held = test::MakeEntry(ElementFactoryType::AudioSource, "test.Element", "WAVE");
    const std::weak_ptr<IParametersCollectionInstance> watch = held;
    std::unique_ptr<Interface> element = std::make_unique<Element>(std::move(held));
    EXPECT_FALSE(watch.expired());
    element.reset();
    EXPECT_TRUE(watch.expired());
}

TEST(AnElement, EndsWhollyThroughAnyOfItsInterfaces) {
    ExpectEndThrough<IAudioSource, SmallSource>();
    ExpectEndThrough<IMediaSource, SmallSource>();
    ExpectEndThrough<IAudioSourceControl, SmallSource>();
    ExpectEndThrough<ISourceControl, SmallSource>();
    ExpectEndThrough<IBasicControl, SmallSource>();
    ExpectEndThrough<IAudioSink, SmallSink>();
    ExpectEndThrough<IMediaSink, SmallSink>();
    ExpectEndThrough<IAudioSinkControl, SmallSink>();
    ExpectEndThrough<ISinkControl, SmallSink>();
    ExpectEndThrough<IBasicControl, SmallSink>();
}

} // namespace
} // namespace kel
