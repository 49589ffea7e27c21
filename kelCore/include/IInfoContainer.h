/// A set of descriptions of media.
/// Immutable once shared as const: any number of threads may read it.
/// @ingroup streams
#pragma once

#include "Export.h"

#include <memory>
#include <vector>

namespace kel {

class IAudioInfo;
class IInfo;
class IPackagingInfo;

/// A list of infos, with an optional description of their packaging.
class KEL_CORE_EXPORT IInfoContainer {
public:
    virtual ~IInfoContainer();

    /// Returns all infos in their order.
    /// [any, any thread, does not throw]
    virtual std::vector<std::shared_ptr<const IInfo>> GetInfos() const = 0;

    /// Returns only the audio infos, in their order.
    /// [any, any thread, does not throw]
    virtual std::vector<std::shared_ptr<const IAudioInfo>> GetAudioInfos() const = 0;

    /// Returns the packaging of the infos; empty when the container was made without one.
    /// [any, any thread, does not throw]
    virtual std::shared_ptr<const IPackagingInfo> GetPackagingInfo() const = 0;
};

/// Makes a container of one info. Any thread may call it.
/// @param info the info, shared
/// @param packaging its packaging, shared; may be empty
/// @throws KELRuntimeError when @p info is empty
KEL_CORE_EXPORT std::shared_ptr<IInfoContainer>
CreateInfoContainer(std::shared_ptr<const IInfo> info,
                    std::shared_ptr<const IPackagingInfo> packaging);

/// Makes a container of any number of infos. Any thread may call it.
/// @param infos the infos, shared; none may be empty
/// @param packaging their packaging, shared; may be empty
/// @throws KELRuntimeError when one of @p infos is empty
KEL_CORE_EXPORT std::shared_ptr<IInfoContainer>
CreateInfoContainer(std::vector<std::shared_ptr<const IInfo>> infos,
                    std::shared_ptr<const IPackagingInfo> packaging);

} // namespace kel
