/// A set of media descriptions.
#pragma once

#include "Export.h"

#include <memory>
#include <vector>

namespace kel {

class IAudioInfo;
class IInfo;
class IPackagingInfo;

/// A set of infos, with a description of their packaging if there is one. Immutable.
class KEL_CORE_EXPORT IInfoContainer {
public:
    virtual ~IInfoContainer();

    /// Every info in the container, in the order given.
    virtual std::vector<std::shared_ptr<const IInfo>> GetInfos() const = 0;

    /// The audio infos alone, in the order given.
    virtual std::vector<std::shared_ptr<const IAudioInfo>> GetAudioInfos() const = 0;

    /// How the infos are packaged; empty when nothing was said.
    virtual std::shared_ptr<const IPackagingInfo> GetPackagingInfo() const = 0;
};

/// Makes a container of one info. Any thread may call it.
/// @param info the info, shared
/// @param packaging how it is packaged; may be empty
/// @throws KELRuntimeError when @p info is empty
KEL_CORE_EXPORT std::shared_ptr<IInfoContainer>
CreateInfoContainer(std::shared_ptr<const IInfo> info,
                    std::shared_ptr<const IPackagingInfo> packaging);

/// Makes a container of any number of infos. Any thread may call it.
/// @param infos the infos, shared; none may be empty
/// @param packaging how they are packaged; may be empty
/// @throws KELRuntimeError when one of @p infos is empty
KEL_CORE_EXPORT std::shared_ptr<IInfoContainer>
CreateInfoContainer(std::vector<std::shared_ptr<const IInfo>> infos,
                    std::shared_ptr<const IPackagingInfo> packaging);

} // namespace kel
