#include "DoctorCommand.h"

#include <cstdio>

#include "ExitCode.h"
#include "ProgramModule.h"

namespace orvplay {

int doctorCommand(bool json) {
    std::string error;
    const auto run =
        reinterpret_cast<int (*)(bool)>(moduleEntry("orvdoctor.so", "orvRunDoctor", &error));
    if (run == nullptr) {
        fprintf(stderr,
                "orvplay: the doctor cannot be loaded: %s; to mend it: sudo apt-get install "
                "--reinstall orvplayer-tools\n",
                error.c_str());
        return EXIT_FAILED;
    }
    return run(json);
}

}  // namespace orvplay
