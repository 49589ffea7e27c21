/// The functions of libsndfile that this module calls. Any thread.
#pragma once

#include "base/LoadedLibrary.h"

#include <sndfile.h>

namespace kel::host {

/// libsndfile, whose codecs are libraries that take long to load.
struct SndfileLibrary {
    LoadedLibrary library{"libsndfile.so.1", "libsndfile1"};
    KEL_LIBRARY_FUNCTION(sf_close);
    KEL_LIBRARY_FUNCTION(sf_command);
    KEL_LIBRARY_FUNCTION(sf_error);
    KEL_LIBRARY_FUNCTION(sf_error_number);
    KEL_LIBRARY_FUNCTION(sf_get_string);
    KEL_LIBRARY_FUNCTION(sf_open);
    KEL_LIBRARY_FUNCTION(sf_open_virtual);
    KEL_LIBRARY_FUNCTION(sf_readf_double);
    KEL_LIBRARY_FUNCTION(sf_readf_float);
    KEL_LIBRARY_FUNCTION(sf_readf_int);
    KEL_LIBRARY_FUNCTION(sf_seek);
    KEL_LIBRARY_FUNCTION(sf_strerror);
};

/// Returns libsndfile, and loads it at the first call.
/// @throws JobError when it cannot be loaded
const SndfileLibrary& Sndfile();

} // namespace kel::host
