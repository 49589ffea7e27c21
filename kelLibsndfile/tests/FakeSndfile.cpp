#include "FakeSndfile.h"

#include <dlfcn.h>
#include <stdexcept>
#include <string>
#include <vector>

namespace kel::test {

namespace {

template <typename Function>
Function* RealFunction(const char* name) {
    static void* const library = dlopen("libsndfile.so.1", RTLD_NOW | RTLD_LOCAL);
    void* const symbol = library != nullptr ? dlsym(library, name) : nullptr;
    if (symbol == nullptr) {
        throw std::runtime_error(dlerror());
    }
    return reinterpret_cast<Function*>(symbol);
}

// Records the call and lets the test's function or the real one answer.
template <typename Member, typename... Arguments>
auto Answer(const char* name, Member member, Arguments... arguments) {
    SndfileCalls().emplace_back(name);
    const auto& own = SndfileAnswers().*member;
    return own ? own(arguments...) : (RealSndfile().*member)(arguments...);
}

} // namespace

const SndfileFunctions& RealSndfile() {
    static const SndfileFunctions& real = *new SndfileFunctions{
        RealFunction<decltype(sf_open)>("sf_open"),
        RealFunction<decltype(sf_readf_float)>("sf_readf_float"),
        RealFunction<decltype(sf_seek)>("sf_seek"),
        RealFunction<decltype(sf_write_raw)>("sf_write_raw"),
        RealFunction<decltype(sf_format_check)>("sf_format_check"),
        RealFunction<decltype(sf_error)>("sf_error"),
        RealFunction<decltype(sf_strerror)>("sf_strerror"),
        RealFunction<decltype(sf_close)>("sf_close"),
    };
    return real;
}

SndfileFunctions& SndfileAnswers() {
    static SndfileFunctions& answers = *new SndfileFunctions;
    return answers;
}

std::vector<std::string>& SndfileCalls() {
    static std::vector<std::string>& calls = *new std::vector<std::string>;
    return calls;
}

} // namespace kel::test

using kel::test::Answer;
using kel::test::SndfileFunctions;

#define KEL_FAKE extern "C" __attribute__((visibility("default")))

KEL_FAKE SNDFILE* sf_open(const char* path, int mode, SF_INFO* sfinfo) {
    return Answer("sf_open", &SndfileFunctions::open, path, mode, sfinfo);
}

KEL_FAKE sf_count_t sf_readf_float(SNDFILE* sndfile, float* ptr, sf_count_t frames) {
    return Answer("sf_readf_float", &SndfileFunctions::readf_float, sndfile, ptr, frames);
}

KEL_FAKE sf_count_t sf_seek(SNDFILE* sndfile, sf_count_t frames, int whence) {
    return Answer("sf_seek", &SndfileFunctions::seek, sndfile, frames, whence);
}

KEL_FAKE sf_count_t sf_write_raw(SNDFILE* sndfile, const void* ptr, sf_count_t bytes) {
    return Answer("sf_write_raw", &SndfileFunctions::write_raw, sndfile, ptr, bytes);
}

KEL_FAKE int sf_format_check(const SF_INFO* info) {
    return Answer("sf_format_check", &SndfileFunctions::format_check, info);
}

KEL_FAKE int sf_error(SNDFILE* sndfile) {
    return Answer("sf_error", &SndfileFunctions::error, sndfile);
}

KEL_FAKE const char* sf_strerror(SNDFILE* sndfile) {
    return Answer("sf_strerror", &SndfileFunctions::strerror, sndfile);
}

KEL_FAKE int sf_close(SNDFILE* sndfile) {
    return Answer("sf_close", &SndfileFunctions::close, sndfile);
}
