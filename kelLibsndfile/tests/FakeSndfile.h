/// A fake libsndfile in front of the real one, for results that real files cannot produce.
///
/// A test program that links it defines libsndfile's functions itself; the plug-in that it loads
/// then calls these, because the dynamic linker looks into the program first. Each call is recorded
/// and answered by the test's own function or else by the real library.
#pragma once

#include <functional>
#include <sndfile.h>
#include <string>
#include <vector>

namespace kel::test {

/// libsndfile's functions, as far as the plug-in calls them.
struct SndfileFunctions {
    std::function<SNDFILE*(const char*, int, SF_INFO*)> open;
    std::function<sf_count_t(SNDFILE*, float*, sf_count_t)> readf_float;
    std::function<sf_count_t(SNDFILE*, sf_count_t, int)> seek;
    std::function<sf_count_t(SNDFILE*, const void*, sf_count_t)> write_raw;
    std::function<int(const SF_INFO*)> format_check;
    std::function<int(SNDFILE*)> error;
    std::function<const char*(SNDFILE*)> strerror;
    std::function<int(SNDFILE*)> close;
};

/// The functions of the real library.
const SndfileFunctions& RealSndfile();

/// The functions of the test; empty functions go to the real library. A test starts with none.
SndfileFunctions& SndfileAnswers();

/// The calls so far, "sf_open" and so on, in order.
std::vector<std::string>& SndfileCalls();

} // namespace kel::test
