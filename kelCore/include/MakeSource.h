/// Opening of any audio file by the first registered source that reads it.
/// Any thread may call the function; the source is then driven by one thread at a time.
/// @ingroup making
#pragma once

#include "ElementFactoryType.h"
#include "IAudioSource.h"
#include "KELRuntimeError.h"
#include "LogLevel.h"
#include "Logging.h"
#include "ParametersCollection.h"
#include "PlatformString.h"
#include "Registry.h"
#include "WorkflowStepImplementation.h"

#include <algorithm>
#include <cstdint>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace kel {

namespace detail {

/// A registered source, as ImplementElement finds it.
struct SourceCandidate {
    std::string implementation;                                 ///< its name
    std::string type;                                           ///< label of the format
    std::shared_ptr<const IParametersCollectionInstance> entry; ///< its registry entry
};

/// Why a source does not open a file, for all of its types with the same reason.
struct SourceRefusal {
    std::string implementation; ///< name of the source
    std::string types;          ///< "WAVE, AIFF"
    std::string reason;         ///< the message of its exception
};

/// Returns the label of the formats whose files have the extension of @p path, in upper case where
/// the extension is a label itself; "" without an extension.
inline std::string TypeOfExtension(const std::string& path) {
    const std::string name = path.substr(path.rfind('/') + 1);
    const std::string::size_type dot = name.rfind('.');
    std::string extension = dot == std::string::npos ? "" : name.substr(dot + 1);
    for (char& letter : extension) { // in every locale
        letter = letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter;
    }
    return extension == "WAV"                          ? "WAVE"
           : extension == "AIF" || extension == "AIFC" ? "AIFF"
           : extension == "BWF" || extension == "RF64" ? "BWAVE"
                                                       : extension;
}

/// Returns all registered sources in the order in which they are tried: those for the extension of
/// @p path, the others, and at last those for samples without a header, which accept everything.
inline std::vector<SourceCandidate> SourcesFor(const std::string& path) {
    const std::string preferred = TypeOfExtension(path);
    const auto rank = [&preferred](const SourceCandidate& candidate) {
        return candidate.type == preferred ? 0 : candidate.type == "RAW" ? 2 : 1;
    };
    std::vector<SourceCandidate> candidates;
    for (const Registration& registration : GetRegistrations()) {
        SourceCandidate candidate{registration.entry->GetStringValue("implementation"),
                                  registration.entry->GetStringValue("type"), registration.entry};
        const auto isSame = [&candidate](const SourceCandidate& other) {
            return other.implementation == candidate.implementation && other.type == candidate.type;
        };
        // The first of two registrations of the same name hides the other one.
        if (registration.entry->GetIntegerValue("class") ==
                static_cast<std::int32_t>(ElementFactoryType::AudioSource) &&
            std::none_of(candidates.begin(), candidates.end(), isSame)) {
            candidates.push_back(std::move(candidate));
        }
    }
    std::stable_sort(candidates.begin(), candidates.end(),
                     [&rank](const SourceCandidate& first, const SourceCandidate& second) {
                         return rank(first) < rank(second);
                     });
    return candidates;
}

/// Returns whether a source is for files: whether its settings have the path of one.
inline bool ReadsFiles(const IParametersCollectionPrototype* settings) {
    const std::vector<ParameterDescription> all =
        settings != nullptr ? settings->GetParameters() : std::vector<ParameterDescription>();
    return std::any_of(all.begin(), all.end(), [](const ParameterDescription& setting) {
        return setting.name == "FilePath" && setting.kind == ParameterKind::String;
    });
}

/// Makes a source with its default settings and opens a file with it.
/// @throws std::exception with the reason why it does not
inline std::shared_ptr<IAudioSource> OpenWith(const SourceCandidate& candidate,
                                              const std::wstring& path) {
    const auto declared = candidate.entry->GetCollectionValue("init_config");
    if (!ReadsFiles(declared.get())) {
        throw std::invalid_argument("it has no setting FilePath");
    }
    auto source = ImplementElement<ElementFactoryType::AudioSource>(candidate.implementation,
                                                                    candidate.type, nullptr);
    const auto settings = CreateParametersCollectionInstance(declared);
    settings->SetWideStringValue("FilePath", path);
    source->SetInitConfig(settings);
    if (!source->IsMediaOpen()) {
        source->Open(path);
    }
    if (source->GetActivatedOutputs().empty()) {
        source->ActivateOutputs(source->GetAvailableOutputs());
    }
    if (source->GetActivatedOutputs().empty()) {
        throw std::runtime_error("it has no output");
    }
    return source;
}

/// Adds a refusal, to the one of the same source with the same reason if there is one.
inline void AddRefusal(std::vector<SourceRefusal>& refusals, const SourceCandidate& candidate,
                       std::string reason) {
    std::replace(reason.begin(), reason.end(), '\n', ' ');
    for (SourceRefusal& refusal : refusals) {
        if (refusal.implementation == candidate.implementation && refusal.reason == reason) {
            refusal.types += ", " + candidate.type;
            return;
        }
    }
    refusals.push_back({candidate.implementation, candidate.type, std::move(reason)});
}

} // namespace detail

/// Opens an audio file with the first registered source that accepts it: those for the type of its
/// extension first, then all others, in the order of their registration. Users need not know for
/// which types a source is registered.
///
/// The source has its default settings, except for "FilePath", and all outputs are active if none
/// was: GetSample can be called at once. Sources that refuse the file leave their records in the
/// log, also when another one accepts it.
/// @param path the file's path; "-" is a file of this name, not standard input
/// @return the open source, never empty; it must be released before its plug-in is unloaded
/// @throws KELRuntimeError when no source opens the file. It is logged at level Error. Its first
/// line is "PATH: cannot open with any audio source"; each further line is a refusal, "NAME for
/// TYPES: REASON".
inline std::shared_ptr<IAudioSource> MakeSource(const std::string& path) {
    // Libraries take this name for standard input.
    const std::wstring opened = ConvertPlatformStringToWideString(path == "-" ? "./-" : path);
    std::vector<detail::SourceRefusal> refusals;
    for (const detail::SourceCandidate& candidate : detail::SourcesFor(path)) {
        try {
            return detail::OpenWith(candidate, opened);
        } catch (const std::exception& error) {
            detail::AddRefusal(refusals, candidate, error.what());
        } catch (...) {
            detail::AddRefusal(refusals, candidate, "an exception of an unknown type");
        }
    }
    std::string message = path + ": cannot open with any audio source";
    for (const detail::SourceRefusal& refusal : refusals) {
        message += "\n" + refusal.implementation + " for " + refusal.types + ": " + refusal.reason;
    }
    if (refusals.empty()) {
        message += ": none is registered; load a plug-in first";
    }
    KEL_LOG(LogLevel::Error, message);
    throw KELRuntimeError(message);
}

} // namespace kel
