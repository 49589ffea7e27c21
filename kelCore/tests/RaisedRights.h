/// Pretended rights of the process. The program's own versions of two functions of the C library
/// return what a set-user-ID program sees. One thread at a time.
#pragma once

namespace kel::test {

/// While one exists, the process seems to have rights that its user does not have.
class RaisedRights {
public:
    RaisedRights();
    ~RaisedRights();
    RaisedRights(const RaisedRights&) = delete;
    RaisedRights& operator=(const RaisedRights&) = delete;
};

} // namespace kel::test
