#include <cstdlib>

#include "CommandTree.h"

int main(int argc, char** argv) {
    // The program's own messages say what matters to its user: of the trace, errors are enough.
    setenv("ORV_TRACE", "error", 0);
    return orvplay::CommandTree().run(argc, argv);
}
