/// The copies of the constant rates that another source file has.
#pragma once

#include <EditRate.h>

#include <vector>

namespace kel::test {

/// Addresses of the seven rates in EditRateOtherFile.cpp.
std::vector<const EditRate*> RatesOfTheOtherFile();

} // namespace kel::test
