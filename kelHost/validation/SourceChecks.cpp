// Checks of sources.

#include "validation/Check.h"
#include "validation/RepeatedUse.h"

#include <IAudioInfo.h>
#include <IAudioParameters_PCM.h>
#include <IAudioSample.h>
#include <IBuffer.h>
#include <IChannelInfo.h>
#include <IInfoContainer.h>
#include <ISampleContainer.h>
#include <PlatformString.h>
#include <TimeLimits.h>

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace kel::host {

namespace {

constexpr const char* kCannotBeOpened = "its medium cannot be opened, see source.opens";
constexpr const char* kCannotBeRead =
    "it cannot be read to its end, see source.frames-equal-limits";

// The data that a source has delivered.
struct Recording {
    std::vector<TimeLimits> stamps;   // of each sample
    std::vector<std::int64_t> frames; // in each sample
    std::int64_t count = 0;           // of frames
    std::string bytes;

    // The bytes from a frame on.
    std::string_view From(std::int64_t frame) const {
        const std::size_t bytesPerFrame =
            count > 0 ? bytes.size() / static_cast<std::size_t>(count) : 0;
        return std::string_view(bytes).substr(
            std::min(bytes.size(), static_cast<std::size_t>(frame) * bytesPerFrame));
    }
};

// A source whose failed calls are reported by name.
class CheckedSource {
public:
    explicit CheckedSource(CheckContext& context)
        : m_context(context), m_element(Prepare(kCannotBeMade, [&] {
              return MakeElement<ElementFactoryType::AudioSource>(context);
          })) {}

    IAudioSource& Element() const { return *m_element; }
    bool ReadsFile() const { return m_context.WorksOnFile(); }

    // False for a source of files of an unknown type.
    bool HasMedium() const { return !ReadsFile() || m_context.Subject().input.has_value(); }

    // Reports that a source has had no file of its own type.
    void WarnOfForeignInput() const {
        m_context.Warn(fmt::format("it was offered a file of another type, because none of type {} "
                                   "is known; name one with --input",
                                   m_context.Element().entry->GetStringValue("type")));
    }

    // Offers a recording of another type, which the source may open or refuse.
    bool TryOpenForeign() {
        const std::wstring path =
            ConvertPlatformStringToWideString(m_context.Subject().foreignInput.value());
        return m_context.Try("Open of a file of another type", [&] { m_element->Open(path); });
    }

    // The file to open; empty for a source that reads none.
    std::wstring Path() const {
        if (!ReadsFile()) {
            return L"";
        }
        if (!m_context.Subject().input.has_value()) {
            throw NotApplicable(fmt::format("no file of type {} is known; name one with --input",
                                            m_context.Element().entry->GetStringValue("type")));
        }
        return ConvertPlatformStringToWideString(*m_context.Subject().input);
    }

    void Configure() {
        const auto settings = m_context.MakeSettings();
        m_context.Call("SetInitConfig", [&] { m_element->SetInitConfig(settings); });
    }

    // Only by its settings.
    void ConfigureWithPath() {
        const auto settings = m_context.MakeSettings();
        settings->SetWideStringValue("FilePath", Path());
        m_context.Call("SetInitConfig with FilePath", [&] { m_element->SetInitConfig(settings); });
    }

    void Open() {
        m_context.Call("Open", [&] { m_element->Open(Path()); });
    }

    // In the usual order of calls. A source that reads no file may open with its settings.
    void ConfigureAndOpen() {
        Configure();
        if (!IsOpen()) {
            Open();
            Require(IsOpen(), "after Open, IsMediaOpen returns false");
        }
    }

    void PrepareOpen() {
        Prepare(kCannotBeOpened, [this] { ConfigureAndOpen(); });
    }

    void Release() {
        m_context.Call("Release", [&] { m_element->Release(); });
    }

    bool IsOpen() const {
        return m_context.Call("IsMediaOpen", [&] { return m_element->IsMediaOpen(); });
    }

    TimeLimits Limits() const {
        return m_context.Call("GetTimeLimits", [&] { return m_element->GetTimeLimits(""); });
    }

    std::shared_ptr<const ISampleContainer> Sample() const {
        return m_context.Call("GetSample", [&] { return m_element->GetSample(); });
    }

    std::shared_ptr<const IInfoContainer> Output() const {
        return m_context.Call("GetDefinedOutput", [&] { return m_element->GetDefinedOutput(""); });
    }

    std::vector<std::shared_ptr<const IChannelInfo>> Available() const {
        return m_context.Call("GetAvailableOutputs",
                              [&] { return m_element->GetAvailableOutputs(); });
    }

    std::vector<std::shared_ptr<const IChannelInfo>> Activated() const {
        return m_context.Call("GetActivatedOutputs",
                              [&] { return m_element->GetActivatedOutputs(); });
    }

    void Activate(const std::vector<std::shared_ptr<const IChannelInfo>>& outputs) const {
        m_context.Call("ActivateOutputs", [&] { m_element->ActivateOutputs(outputs); });
    }

    // A position counted from the start of the limits, in their rate. It wraps around where limits
    // are too large to count beyond them.
    MediaTime Position(std::int64_t frame) const {
        MediaTime time = m_limits.start;
        time.SetTimeNumber(Sum(time.GetTimeNumber(), frame));
        return time;
    }

    // A position after the end, by a number of frames and one.
    MediaTime PositionBeyond(std::int64_t frames) const {
        return Position(Sum(Sum(m_limits.duration, 1), frames));
    }

    // A source whose frames cannot be counted may refuse a position or reach another one.
    void Seek(std::int64_t frame) const {
        const MediaTime position = Position(frame);
        const std::string what = fmt::format("GotoTimeOffset to frame {}", frame);
        if (!m_uncounted.empty()) {
            m_context.Try(what, [&] { m_element->GotoTimeOffset(position, ""); });
            return;
        }
        const MediaTime reached =
            m_context.Call(what, [&] { return m_element->GotoTimeOffset(position, ""); });
        Require(reached.GetTimeNumber() == position.GetTimeNumber(),
                fmt::format("GotoTimeOffset to {} returns {}", position.GetTimeNumber(),
                            reached.GetTimeNumber()));
    }

    // Gets to know the medium, which is open.
    void Learn() {
        m_limits = Limits();
        Require(m_limits.duration >= 0, fmt::format("its limits last {}", m_limits.duration));
        const EditRate rate = m_limits.start.GetEditRate();
        Require(rate.numerator != 0 && rate.denominator != 0,
                fmt::format("its limits are counted in {}/{} units per second", rate.numerator,
                            rate.denominator));
        const auto output = Output();
        Require(output != nullptr, "GetDefinedOutput returns nothing for an open medium");
        const auto infos = output->GetAudioInfos();
        Require(!infos.empty() && infos.front() != nullptr,
                "GetDefinedOutput names no stream of audio");
        const auto parameters = std::dynamic_pointer_cast<const IAudioParameters_PCM>(
            infos.front()->GetAudioParameters());
        m_bytesPerFrame = 0;
        if (infos.size() > 1) {
            m_uncounted =
                fmt::format("it has {} outputs, and frames are counted of one", infos.size());
        } else if (parameters == nullptr) {
            m_uncounted = "its output is not PCM, and frames cannot be counted";
        } else {
            m_uncounted = IsGrowing() ? "its medium is growing" : "";
            const auto channels = infos.front()->GetChannelInfo();
            m_bytesPerFrame = parameters->GetSampleSize() *
                              (channels != nullptr ? channels->GetNumberOfChannels() : 0U);
            Require(m_bytesPerFrame > 0, "its output is described with frames of no bytes");
        }
        if (m_uncounted.empty() && !HasPositionsOutside()) {
            m_uncounted = "its limits are too large to count positions outside of them";
        }
    }

    bool IsGrowing() const {
        return m_context.Call("IsGrowing", [&] { return m_element->IsGrowing(); });
    }

    // Reason why frames cannot be counted, and positions cannot be predicted; usually empty.
    const std::string& Uncounted() const { return m_uncounted; }

    void RequireCounted() const {
        if (!m_uncounted.empty()) {
            throw NotApplicable(m_uncounted);
        }
    }

    void PrepareLearn() {
        Prepare(kCannotBeOpened, [this] { Learn(); });
    }

    std::int64_t Duration() const { return m_limits.duration; }
    const TimeLimits& KnownLimits() const { return m_limits; }

    // Takes a sample into a recording; false at the end.
    bool Take(Recording& recording) const {
        const auto container = Sample();
        if (container == nullptr) {
            return false;
        }
        const auto samples = container->GetAudioSamples(nullptr, nullptr);
        // Samples that are not audio are not listed; they accompany outputs of other kinds.
        Require(!samples.empty() || m_bytesPerFrame == 0,
                "GetSample returns a container without a sample");
        for (const auto& sample : samples) {
            Require(sample != nullptr, "GetSample returns a container with an empty sample");
            const std::shared_ptr<const IBuffer> buffer = sample->GetBuffer();
            Require(buffer != nullptr, "GetSample returns a sample without a buffer");
            AddTo(recording, *buffer, sample->GetTimeLimits());
        }
        return true;
    }

    // Everything up to the end, or until more has come than was promised.
    Recording TakeAll() const {
        RequireCounted();
        constexpr std::int64_t kMostBytes = std::int64_t{256} * 1024 * 1024;
        if (m_limits.duration > kMostBytes / static_cast<std::int64_t>(m_bytesPerFrame)) {
            throw NotApplicable(fmt::format("its medium has {} frames, too many to be kept; give "
                                            "it a shorter one with --input or --set",
                                            m_limits.duration));
        }
        Recording recording;
        while (recording.count <= m_limits.duration && Take(recording)) {
        }
        return recording;
    }

private:
    static std::int64_t Sum(std::int64_t left, std::int64_t right) {
        return static_cast<std::int64_t>(static_cast<std::uint64_t>(left) +
                                         static_cast<std::uint64_t>(right));
    }

    bool HasPositionsOutside() const {
        constexpr std::int64_t kFarthest = std::numeric_limits<std::int64_t>::max() / 4;
        const std::int64_t start = m_limits.start.GetTimeNumber();
        return start > -kFarthest && start < kFarthest && m_limits.duration < kFarthest;
    }

    void AddTo(Recording& recording, const IBuffer& buffer, const TimeLimits& stamp) const {
        const std::uint32_t size = buffer.GetSize();
        Require(size == 0 || buffer.GetData() != nullptr,
                fmt::format("GetSample returns a buffer of {} bytes without data", size));
        if (m_bytesPerFrame == 0) {
            return;
        }
        Require(
            size % m_bytesPerFrame == 0,
            fmt::format("GetSample returns {} bytes, and a frame has {}", size, m_bytesPerFrame));
        const std::int64_t frames = size / m_bytesPerFrame;
        recording.stamps.push_back(stamp);
        recording.frames.push_back(frames);
        recording.count += frames;
        const auto* bytes = static_cast<const char*>(static_cast<const void*>(buffer.GetData()));
        recording.bytes.append(bytes, size);
    }

    CheckContext& m_context;
    std::shared_ptr<IAudioSource> m_element;
    TimeLimits m_limits{MediaTime(EditRate(48000, 1), 0, nullptr), 0};
    std::uint32_t m_bytesPerFrame = 0; // 0 where the output is not one stream of PCM
    std::string m_uncounted;
};

// All data that a source delivers, for comparison.
Recording Reference(CheckContext& context) {
    CheckedSource source(context);
    source.PrepareOpen();
    source.PrepareLearn();
    return Prepare(kCannotBeRead, [&] { return source.TakeAll(); });
}

void RequireClosed(CheckContext& context, const CheckedSource& source, const std::string& when) {
    IAudioSource& element = source.Element();
    Require(!source.IsOpen(), fmt::format("{}, IsMediaOpen returns true", when));
    Require(source.Output() == nullptr,
            fmt::format("{}, GetDefinedOutput returns something", when));
    Require(source.Available().empty(),
            fmt::format("{}, GetAvailableOutputs returns something", when));
    Require(source.Activated().empty(),
            fmt::format("{}, GetActivatedOutputs returns something", when));
    Require(source.Sample() == nullptr, fmt::format("{}, GetSample returns something", when));
    context.Refuse(fmt::format("{}, GetTimeLimits", when), [&] { element.GetTimeLimits(""); });
    context.Refuse(fmt::format("{}, GotoTimeOffset", when),
                   [&] { element.GotoTimeOffset(MediaTime(EditRate(48000, 1), 0, nullptr), ""); });
    context.Refuse(fmt::format("{}, ActivateOutputs", when), [&] { element.ActivateOutputs({}); });
}

void Opens(CheckContext& context) {
    {
        CheckedSource source(context);
        source.ConfigureAndOpen();
        source.Learn();
        Require(!source.Available().empty(), "GetAvailableOutputs returns none for an open medium");
        Require(
            source.Activated().size() == source.Available().size(),
            "GetActivatedOutputs returns other outputs than GetAvailableOutputs without a choice");
    }
    CheckedSource source(context);
    if (source.ReadsFile()) {
        source.ConfigureWithPath();
        Require(source.IsOpen(), "after SetInitConfig with FilePath, IsMediaOpen returns false");
    }
}

void AnswersWhileClosed(CheckContext& context) {
    CheckedSource source(context);
    if (source.ReadsFile()) {
        Prepare(kCannotBeOpened, [&] { source.Configure(); });
        RequireClosed(context, source, "before Open");
        source.Release();
        Prepare(kCannotBeOpened, [&] { source.Open(); });
    } else {
        source.PrepareOpen();
    }
    source.Release();
    RequireClosed(context, source, "after Release");
    source.Release();
}

void OpensOnce(CheckContext& context) {
    CheckedSource source(context);
    source.PrepareOpen();
    const std::wstring path = source.Path();
    context.Refuse("a second Open", [&] { source.Element().Open(path); });
    Require(source.IsOpen(), "after a second Open that was refused, IsMediaOpen returns false");
}

void RefusesMissingFile(CheckContext& context) {
    CheckedSource source(context);
    if (!source.ReadsFile()) {
        throw NotApplicable("it reads no file");
    }
    Prepare(kCannotBeOpened, [&] { source.Configure(); });
    context.Refuse("Open of a missing file", [&] { source.Element().Open(L"missing"); });
    Require(!source.IsOpen(), "after Open of a missing file, IsMediaOpen returns true");
    source.Open();
    Require(source.IsOpen(),
            "after Open of a missing file and of another, IsMediaOpen returns false");
}

void DeliversItsLimits(CheckContext& context) {
    CheckedSource source(context);
    source.PrepareOpen();
    source.PrepareLearn();
    const Recording recording = source.TakeAll();
    Require(recording.count == source.Duration(),
            fmt::format("it delivered {} frames{}, and its limits declare {}", recording.count,
                        recording.count > source.Duration() ? " and more" : "", source.Duration()));
}

void StampsWithoutGaps(CheckContext& context) {
    CheckedSource source(context);
    source.PrepareOpen();
    source.PrepareLearn();
    const Recording recording = Prepare(kCannotBeRead, [&] { return source.TakeAll(); });
    const MediaTime start = source.KnownLimits().start;
    std::int64_t next = start.GetTimeNumber();
    for (std::size_t i = 0; i < recording.stamps.size(); ++i) {
        const TimeLimits& stamp = recording.stamps[i];
        Require(stamp.start.GetEditRate() == start.GetEditRate(),
                fmt::format("the stamp of sample {} is not in the rate of the limits", i));
        Require(stamp.start.GetTimeNumber() == next,
                fmt::format("sample {} is stamped {}, and {} is next", i,
                            stamp.start.GetTimeNumber(), next));
        Require(stamp.duration == recording.frames[i],
                fmt::format("sample {} has {} frames, and its time limits declare {}", i,
                            recording.frames[i], stamp.duration));
        next += stamp.duration;
    }
}

void EndsForGood(CheckContext& context) {
    CheckedSource source(context);
    source.PrepareOpen();
    source.PrepareLearn();
    const Recording recording = Prepare(kCannotBeRead, [&] { return source.TakeAll(); });
    if (recording.count > source.Duration()) {
        throw NotApplicable("it does not end, see source.frames-equal-limits");
    }
    constexpr int kTimes = 10;
    for (int i = 0; i < kTimes; ++i) {
        Require(source.Sample() == nullptr,
                fmt::format("GetSample returned something at call {} after the end", i + 1));
    }
}

// The places where something may go wrong: both ends, and the borders of the first samples.
std::set<std::int64_t> Edges(const Recording& recording, std::int64_t duration) {
    std::set<std::int64_t> edges{0, 1, duration / 2, duration - 1, duration};
    std::int64_t border = 0;
    for (std::size_t i = 0; i < std::min<std::size_t>(recording.frames.size(), 3); ++i) {
        border += recording.frames[i];
        edges.insert({border - 1, border, border + 1});
    }
    edges.erase(edges.begin(), edges.lower_bound(0));
    edges.erase(edges.upper_bound(duration), edges.end());
    return edges;
}

void SeeksToEachEdge(CheckContext& context) {
    const Recording whole = Reference(context);
    CheckedSource source(context);
    source.PrepareOpen();
    source.PrepareLearn();
    for (const std::int64_t edge : Edges(whole, source.Duration())) {
        source.Seek(edge);
        const std::string_view expected = whole.From(edge);
        Recording piece;
        const bool isThere = source.Take(piece);
        Require(isThere == !expected.empty(),
                fmt::format("from frame {} on, it delivers {}", edge,
                            isThere ? "something after the end" : "nothing"));
        Require(piece.bytes.size() <= expected.size() &&
                    expected.substr(0, piece.bytes.size()) == piece.bytes,
                fmt::format("from frame {} on, it delivers others than when it is read from start "
                            "to end",
                            edge));
    }
    source.Seek(0);
    Require(source.TakeAll().bytes == whole.bytes,
            "after its end and back at its start, it does not deliver all of it again");
}

void RefusesToSeekOutside(CheckContext& context) {
    CheckedSource source(context);
    source.PrepareOpen();
    source.PrepareLearn();
    source.RequireCounted();
    IAudioSource& element = source.Element();
    const MediaTime before = source.Position(-1);
    const MediaTime beyond = source.PositionBeyond(0);
    const EditRate rate = source.KnownLimits().start.GetEditRate();
    const MediaTime other(EditRate(rate.numerator + 1, rate.denominator), before.GetTimeNumber(),
                          nullptr);
    context.Refuse("GotoTimeOffset before the start", [&] { element.GotoTimeOffset(before, ""); });
    context.Refuse("GotoTimeOffset after the end", [&] { element.GotoTimeOffset(beyond, ""); });
    MediaTime start = other;
    start.SetTimeNumber(source.Position(0).GetTimeNumber());
    context.Refuse("GotoTimeOffset in another rate", [&] { element.GotoTimeOffset(start, ""); });
}

void SwitchesOutputs(CheckContext& context) {
    const Recording whole = Reference(context);
    CheckedSource source(context);
    source.PrepareOpen();
    source.PrepareLearn();
    const auto outputs = source.Available();
    Recording recording;
    static_cast<void>(source.Take(recording));
    source.Activate({});
    Require(source.Activated().empty(),
            "with all outputs off, GetActivatedOutputs returns something");
    Require(source.Sample() == nullptr, "with all outputs off, GetSample returns something");
    source.Activate(outputs);
    Require(source.Activated().size() == outputs.size(),
            "with all outputs on, GetActivatedOutputs does not give all");
    const Recording rest = source.TakeAll();
    Require(recording.bytes + rest.bytes == whole.bytes,
            "with its outputs off and on again, it does not go on where it was");
}

void OpensAgain(CheckContext& context) {
    const Recording whole = Reference(context);
    CheckedSource source(context);
    source.PrepareOpen();
    source.PrepareLearn();
    Recording piece;
    static_cast<void>(source.Take(piece));
    for (int round = 0; round < 2; ++round) {
        source.Release();
        source.Open();
        Require(source.IsOpen(), "after Release and Open, IsMediaOpen returns false");
        source.Learn();
        Require(source.TakeAll().bytes == whole.bytes,
                "after Release and Open, it does not deliver what it did at first");
    }
}

// One life of a source, with a failure in it.
void Live(CheckContext& context) {
    CheckedSource source(context);
    if (source.ReadsFile()) {
        source.Configure();
        context.Try("Open of a missing file", [&] { source.Element().Open(L"missing"); });
        if (!source.HasMedium()) {
            source.TryOpenForeign();
            source.Release();
            return;
        }
        source.Open();
    } else {
        source.ConfigureAndOpen();
    }
    source.Learn();
    Recording recording;
    static_cast<void>(source.Take(recording));
    source.Seek(0);
    static_cast<void>(source.Take(recording));
    const MediaTime beyond = source.PositionBeyond(0);
    context.Try("GotoTimeOffset after the end",
                [&] { source.Element().GotoTimeOffset(beyond, ""); });
    source.Release();
}

void PrepareLife(CheckContext& context) {
    CheckedSource source(context);
    if (source.HasMedium()) {
        source.PrepareOpen();
        source.PrepareLearn();
    } else {
        source.WarnOfForeignInput();
    }
    Prepare("it cannot be used repeatedly, as other checks report", [&] { Live(context); });
}

void ClosesDescriptors(CheckContext& context) {
    PrepareLife(context);
    RequireNoOpenDescriptors([&] { Live(context); });
}

void LeavesNoFiles(CheckContext& context) {
    PrepareLife(context);
    RequireNoFiles([&] { Live(context); });
}

void FreesMemory(CheckContext& context) {
    PrepareLife(context);
    RequireNoGrowth([&] { Live(context); });
}

// A file that the user has named may be damaged. A source may report that only in its log.
void JudgeLoggedErrors(CheckContext& context) {
    if (context.Subject().isOwnInput) {
        context.WarnOfLoggedErrors();
    } else {
        context.RequireNoLoggedErrors();
    }
}

// Reads a number of samples, or up to the end. The end may be the report of an error.
void ReadSome(CheckContext& context, const CheckedSource& source) {
    constexpr int kMaxSamples = 1000;
    Recording recording;
    for (int i = 0; i < kMaxSamples; ++i) {
        recording = Recording();
        if (!Prepare(kCannotBeRead, [&] { return source.Take(recording); })) {
            context.ForgetLoggedErrors();
            return;
        }
        JudgeLoggedErrors(context);
    }
}

// Makes calls that nothing requires. They may find something to complain about.
void CallWithoutNeed(CheckContext& context, CheckedSource& source) {
    IAudioSource& element = source.Element();
    context.Try("a second Release", [&] { element.Release(); });
    context.Try("Interrupt", [&] { element.Interrupt(); });
    context.Try("ClearInternalBuffer", [&] { element.ClearInternalBuffer(); });
    context.Try("SetDirection", [&] { element.SetDirection(MediaSourceDirection::Forward); });
    context.WarnOfLoggedErrors();
}

void ReportsErrors(CheckContext& context) {
    context.WatchLog();
    CheckedSource source(context);
    source.PrepareOpen();
    source.PrepareLearn();
    Prepare(kCannotBeOpened, [&] {
        source.Activate(source.Available());
        static_cast<void>(source.Activated());
    });
    JudgeLoggedErrors(context);
    ReadSome(context, source);
    Prepare("it cannot seek, see source.seek-to-each-edge", [&] { source.Seek(0); });
    JudgeLoggedErrors(context);
    ReadSome(context, source);
    Prepare("it cannot be released, see source.closed", [&] { source.Release(); });
    JudgeLoggedErrors(context);
    CallWithoutNeed(context, source);
    if (source.ReadsFile()) {
        Prepare(kCannotBeOpened, [&] { source.ConfigureWithPath(); });
        JudgeLoggedErrors(context);
    }
}

// Calls in random order, and what must be known of them. A source of files of an unknown type is
// called without a medium, unless it opens a recording of another type.
class RandomCalls {
public:
    explicit RandomCalls(CheckContext& context)
        : m_context(context), m_random(context), m_source(context) {
        if (m_source.HasMedium()) {
            m_source.PrepareOpen();
            m_source.PrepareLearn();
            NoteOpen();
        } else {
            m_source.WarnOfForeignInput();
            Prepare(kCannotBeOpened, [&] { m_source.Configure(); });
        }
    }

    void Run() {
        using Calls = RandomCalls;
        const std::vector<Step<Calls>> steps{
            {"GetSample", &Calls::GetSample},
            {"GetSample", &Calls::GetSample},
            {"GetSample", &Calls::GetSample},
            {"GotoTimeOffset within", &Calls::SeekWithin},
            {"GotoTimeOffset before the start", &Calls::SeekBefore},
            {"GotoTimeOffset after the end", &Calls::SeekBeyond},
            {"ActivateOutputs with none", &Calls::ActivateNone},
            {"ActivateOutputs with some", &Calls::ActivateSome},
            {"ActivateOutputs with all", &Calls::ActivateAll},
            {"ActivateOutputs with all", &Calls::ActivateAll},
            {"GetTimeLimits", &Calls::GetLimits},
            {"queries", &Calls::Query},
            {"Interrupt", &Calls::Interrupt},
            {"ClearInternalBuffer", &Calls::ClearInternalBuffer},
            {"SetDirection", &Calls::SetDirection},
            {"Release", &Calls::Release},
            {"Open", &Calls::Open},
            {"Open", &Calls::Open},
            {"Open of a missing file", &Calls::OpenMissing},
        };
        m_random.Run(*this, steps);
    }

private:
    std::int64_t RandomBelow(std::uint64_t end) {
        return static_cast<std::int64_t>(m_random.Below(end));
    }

    // From the first frame to the end, which is a position, too.
    std::int64_t RandomFrame() {
        return RandomBelow(static_cast<std::uint64_t>(m_source.Duration()) + 1);
    }

    void GetSample() {
        Recording recording;
        const bool isThere = m_source.Take(recording);
        Require(!isThere || (m_isOpen && m_isActive),
                m_isOpen ? "GetSample returned something with all outputs off"
                         : "GetSample returned something without a medium");
    }

    void SeekWithin() {
        const std::int64_t frame = RandomFrame();
        if (m_isOpen) {
            m_source.Seek(frame);
        } else {
            RefuseToSeek(m_source.Position(frame), "without a medium");
        }
    }

    void SeekBefore() { RefuseToSeek(m_source.Position(-1 - RandomFrame()), "before the start"); }

    void SeekBeyond() { RefuseToSeek(m_source.PositionBeyond(RandomFrame()), "after the end"); }

    // An open source may accept one if its positions cannot be predicted.
    void RefuseToSeek(const MediaTime& position, const char* where) {
        const std::string what = fmt::format("GotoTimeOffset {}", where);
        const auto seek = [&] {
            m_source.Element().GotoTimeOffset(position, "");
        };
        if (m_isOpen && !m_source.Uncounted().empty()) {
            m_context.Try(what, seek);
        } else {
            m_context.Refuse(what, seek);
        }
    }

    void ActivateNone() { Activate({}); }

    void ActivateAll() { Activate(m_source.Available()); }

    // A source of several outputs may refuse to deliver only some of them.
    void ActivateSome() {
        const auto outputs = m_source.Available();
        if (m_isOpen && outputs.size() > 1) {
            const auto first = outputs.begin() + RandomBelow(outputs.size());
            if (m_context.Try("ActivateOutputs with some", [&] {
                    m_source.Element().ActivateOutputs({first, outputs.end()});
                })) {
                m_isActive = true;
            }
        }
    }

    void Activate(const std::vector<std::shared_ptr<const IChannelInfo>>& outputs) {
        if (m_isOpen) {
            m_source.Activate(outputs);
            m_isActive = !outputs.empty();
        } else {
            m_context.Refuse("ActivateOutputs without a medium",
                             [&] { m_source.Element().ActivateOutputs(outputs); });
        }
    }

    void GetLimits() {
        if (m_isOpen) {
            const std::int64_t duration = m_source.Limits().duration;
            Require(duration == m_source.Duration() || m_source.IsGrowing(),
                    "its limits have changed");
        } else {
            m_context.Refuse("GetTimeLimits without a medium",
                             [&] { m_source.Element().GetTimeLimits(""); });
        }
    }

    void Query() {
        const IAudioSource& element = m_source.Element();
        Require(m_source.IsOpen() == m_isOpen, fmt::format("IsMediaOpen returns {}", !m_isOpen));
        Require((m_source.Output() != nullptr) == m_isOpen,
                fmt::format("GetDefinedOutput returns {}", m_isOpen ? "nothing" : "something"));
        Require(m_source.Available().empty() != m_isOpen,
                fmt::format("GetAvailableOutputs returns {}", m_isOpen ? "none" : "some"));
        Require(m_source.Activated().empty() != (m_isOpen && m_isActive),
                fmt::format("GetActivatedOutputs returns {}",
                            m_isOpen && m_isActive ? "none" : "some"));
        m_context.Call("GetDirection", [&] { return element.GetDirection(); });
        m_context.Call("IsGrowing", [&] { return element.IsGrowing(); });
        m_context.Call("GetMetadatas", [&] { return element.GetMetadatas(); });
    }

    void Interrupt() {
        m_context.Call("Interrupt", [this] { m_source.Element().Interrupt(); });
    }

    void ClearInternalBuffer() {
        m_context.Call("ClearInternalBuffer", [this] { m_source.Element().ClearInternalBuffer(); });
    }

    void SetDirection() {
        m_context.Try("SetDirection",
                      [this] { m_source.Element().SetDirection(MediaSourceDirection::Forward); });
    }

    void Release() {
        m_source.Release();
        m_isOpen = false;
    }

    void Open() {
        const bool hasMedium = m_source.HasMedium();
        if (m_isOpen && hasMedium) {
            const std::wstring path = m_source.Path();
            m_context.Refuse("a second Open", [&] { m_source.Element().Open(path); });
        } else if (m_isOpen) {
            Require(!m_source.TryOpenForeign(), "a second Open was not refused");
        } else if (hasMedium) {
            m_source.Open();
            NoteOpen();
        } else if (m_source.TryOpenForeign()) {
            m_source.Learn();
            NoteOpen();
        }
    }

    // A source may keep its choice of outputs for the next medium or forget it.
    void NoteOpen() {
        m_isOpen = true;
        m_isActive = !m_source.Activated().empty();
    }

    void OpenMissing() {
        if (m_source.ReadsFile()) {
            m_context.Refuse("Open of a missing file",
                             [&] { m_source.Element().Open(L"missing"); });
        }
    }

    CheckContext& m_context;
    RandomSequence m_random;
    CheckedSource m_source;
    bool m_isOpen = false;
    bool m_isActive = false;
};

void SurvivesRandomCalls(CheckContext& context) {
    RandomCalls(context).Run();
}

} // namespace

std::vector<Check> SourceChecks() {
    constexpr auto kSource = CheckScope::Source;
    return {
        {"source.opens", "It opens its medium and describes it.", kSource, Opens},
        {"source.closed", "Without a medium it reports that, or refuses.", kSource,
         AnswersWhileClosed},
        {"source.opens-once", "Open is refused while a medium is open, which stays open.", kSource,
         OpensOnce},
        {"source.missing-file", "A missing file is refused, and the next one is opened.", kSource,
         RefusesMissingFile},
        {"source.frames-equal-limits", "It delivers as many frames as GetTimeLimits declares.",
         kSource, DeliversItsLimits},
        {"source.stamps-without-gaps",
         "Each sample starts where the one before ends, the first at the start of the limits.",
         kSource, StampsWithoutGaps},
        {"source.nothing-after-end",
         "After GetSample has returned nothing, it returns nothing more.", kSource, EndsForGood},
        {"source.seek-to-each-edge",
         "From every frame within the limits it delivers what it does in passing.", kSource,
         SeeksToEachEdge},
        {"source.seek-outside", "It refuses to seek outside of its limits and in another rate.",
         kSource, RefusesToSeekOutside},
        {"source.outputs-off-and-on",
         "With its outputs off it delivers nothing; with them on again it continues.", kSource,
         SwitchesOutputs},
        {"source.release-and-reopen", "After Release and Open it delivers the same once more.",
         kSource, OpensAgain},
        {"source.closes-descriptors", "It leaves no descriptor open.", kSource, ClosesDescriptors},
        {"source.leaves-no-files", "It leaves no file.", kSource, LeavesNoFiles},
        {"source.frees-memory", "Repeated use takes no more memory.", kSource, FreesMemory},
        {"source.reports-errors", kReportsErrors, kSource, ReportsErrors},
        {"source.random-calls", "In whatever order it is called, it does what it must or refuses.",
         kSource, SurvivesRandomCalls},
    };
}

} // namespace kel::host
