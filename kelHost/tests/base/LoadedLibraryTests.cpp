#include "base/LoadedLibrary.h"

#include "base/Errors.h"

#include <functional>
#include <gtest/gtest.h>
#include <string>

namespace kel::host {

namespace {

std::string FailureOf(const std::function<void()>& work) {
    try {
        work();
    } catch (const JobError& error) {
        return error.File() + ": " + error.what();
    }
    return "none";
}

} // namespace

TEST(LoadedLibrary, FindsFunctions) {
    const LoadedLibrary library("libm.so.6", "libc6");
    EXPECT_EQ(library.Find<double (*)(double, double)>("fmax")(1, 2), 2);
}

TEST(LoadedLibrary, NamesThePackageOfAMissingLibrary) {
    EXPECT_EQ(
        FailureOf([] { const LoadedLibrary library("libkelMissing.so.1", "libkel1"); }),
        "libkelMissing.so.1: cannot load the library: cannot open shared object file: No such "
        "file or directory; install the package libkel1");
}

TEST(LoadedLibrary, NamesAMissingFunction) {
    const LoadedLibrary library("libm.so.6", "libc6");
    EXPECT_EQ(FailureOf([&] { library.Find<void (*)()>("kelMissing"); }),
              "libm.so.6: cannot use the library: /lib/x86_64-linux-gnu/libm.so.6: undefined "
              "symbol: kelMissing");
}

} // namespace kel::host
