#include "EditRateOtherFile.h"

namespace kel::test {

std::vector<const EditRate*> RatesOfTheOtherFile() {
    return {&kEditRateNull,  &kEditRate23_976, &kEditRate24,   &kEditRate25,
            &kEditRate29_97, &kEditRate50,     &kEditRate59_94};
}

} // namespace kel::test
