// The tree of the element interfaces: their bases, and the object that each conversion of a host
// reaches.

#include "Elements.h"

#include <gtest/gtest.h>

#include <type_traits>
#include <utility>

namespace kel {

namespace {

using test::SmallSink;
using test::SmallSource;

// A static cast from a base to a class that derives from it is impossible exactly when the base is
// virtual (or ambiguous).
template <typename Base, typename Derived, typename = void>
constexpr bool kCanBeCastDown = false;
template <typename Base, typename Derived>
constexpr bool kCanBeCastDown<Base, Derived,
                              std::void_t<decltype(static_cast<Derived*>(std::declval<Base*>()))>> =
    true;

// Public and unambiguous.
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

static_assert(std::is_base_of_v<IInfo, IAudioInfo>);
static_assert(kIsPublicBase<IAudioParameters, IAudioParameters_PCM>);
static_assert(kIsPublicBase<IEncodingParameters, IAudioParameters>);

// The data sides and the control sides are independent of each other.
static_assert(!std::is_base_of_v<IBasicControl, IMediaSource>);
static_assert(!std::is_base_of_v<IBasicControl, IMediaSink>);
static_assert(!std::is_base_of_v<IMediaSource, IAudioSourceControl>);
static_assert(!std::is_base_of_v<IMediaSink, IAudioSinkControl>);

template <typename... Interfaces>
constexpr bool kAreAbstractWithVirtualDestructor =
    ((std::is_abstract_v<Interfaces> && std::has_virtual_destructor_v<Interfaces>)&&...);
static_assert(kAreAbstractWithVirtualDestructor<
              IBasicControl, ISourceControl, IAudioSourceControl, IMediaSource, IAudioSource,
              ISinkControl, IAudioSinkControl, IMediaSink, IAudioSink, IAudioInfo, IAudioParameters,
              IAudioParameters_PCM, IChannelInfo, ITrack, ITrackGroup, IInfoContainer, IAudioSample,
              ISampleContainer, IBuffer, IMemoryBlock, IMemoryBlockAllocator, ICheckInputReport,
              IElementFactory, ILoggerWriter, IParametersCollectionPrototype,
              IParametersCollectionInstance>);

// Interfaces with a public virtual destructor and nothing to implement.
template <typename... Interfaces>
constexpr bool kHaveOnlyAVirtualDestructor = ((!std::is_abstract_v<Interfaces> &&
                                               std::has_virtual_destructor_v<Interfaces> &&
                                               std::is_destructible_v<Interfaces> &&
                                               sizeof(Interfaces) == sizeof(void*)) &&
                                              ...);
static_assert(kHaveOnlyAVirtualDestructor<IInfo, ISample, IEncodingParameters, IMetadata,
                                          IClockInfo, IPackagingInfo, IStep, IInputMediator,
                                          IOutputMediator, IMilestone>);

// No data: only the pointers to the virtual tables.
static_assert(sizeof(ISourceControl) == sizeof(void*));
static_assert(sizeof(IMediaSource) == sizeof(void*));
static_assert(sizeof(IMediaSink) == sizeof(void*));
static_assert(sizeof(ISinkControl) == sizeof(void*));
static_assert(sizeof(IAudioSourceControl) <= 2 * sizeof(void*));
static_assert(sizeof(IAudioSource) <= 3 * sizeof(void*));
static_assert(sizeof(IAudioSink) <= 3 * sizeof(void*));

// An element may have one more control side beside its audio interfaces: still one IBasicControl.
class IMeteredSinkControl : public virtual ISinkControl {};
class MeteredSink : public IAudioSink, public virtual IMeteredSinkControl {};
static_assert(kIsPublicBase<IBasicControl, MeteredSink>);
class IMeteredSourceControl : public virtual ISourceControl {};
class MeteredSource : public IAudioSource, public IMeteredSourceControl {};
static_assert(kIsPublicBase<IBasicControl, MeteredSource>);

template <typename Interface>
void ExpectReached(Interface* found, const void* element, const IBasicControl* control) {
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(dynamic_cast<void*>(found), element);
    EXPECT_EQ(dynamic_cast<IBasicControl*>(found), control);
}

// Casts at run time from one interface of an element to all of them.
template <typename... Interfaces, typename From>
void ExpectOneElement(From* from, const void* element, const IBasicControl* control) {
    (ExpectReached(dynamic_cast<Interfaces*>(from), element, control), ...);
}

template <typename... Interfaces, typename Element>
void ExpectOneElementThroughEach(Element& element) {
    (ExpectOneElement<Interfaces...>(static_cast<Interfaces*>(&element), &element, &element), ...);
}

TEST(TheInterfacesOfAnElement, AllLeadToOneObjectWithOneBasicControl) {
    SmallSource source;
    ExpectOneElementThroughEach<IAudioSource, IMediaSource, IAudioSourceControl, ISourceControl,
                                IBasicControl>(source);
    SmallSink sink;
    ExpectOneElementThroughEach<IAudioSink, IMediaSink, IAudioSinkControl, ISinkControl,
                                IBasicControl>(sink);
}

TEST(TheInterfacesOfAnElement, BeginWithTheDataSide) {
    SmallSource source;
    IAudioSource* const audioSource = &source;
    EXPECT_EQ(static_cast<void*>(static_cast<IMediaSource*>(audioSource)),
              static_cast<void*>(audioSource));
    SmallSink sink;
    IAudioSink* const audioSink = &sink;
    EXPECT_EQ(static_cast<void*>(static_cast<IMediaSink*>(audioSink)),
              static_cast<void*>(audioSink));
}

} // namespace
} // namespace kel
