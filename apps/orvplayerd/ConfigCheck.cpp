#include "ConfigCheck.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string>

#include "DaemonOptions.h"
#include "binder/PermissionPolicy.h"

namespace orvplayerd {

namespace {

std::string variable(const char* name) {
    const char* value = getenv(name);
    return value != nullptr ? value : "";
}

// Whether a variable is unset or has one of the values.
bool checkChoice(const char* name, std::initializer_list<const char*> values) {
    const std::string value = variable(name);
    if (value.empty() || std::any_of(values.begin(), values.end(),
                                     [&](const char* known) { return value == known; })) {
        printf("%s: %s\n", name, value.empty() ? "not set" : value.c_str());
        return true;
    }
    std::string known;
    for (const char* one : values) {
        known += (known.empty() ? "" : ", ") + std::string(one);
    }
    fprintf(stderr, "orvplayerd: %s is \"%s\"; use one of: %s\n", name, value.c_str(),
            known.c_str());
    return false;
}

bool checkTraceFile() {
    const std::string path = variable("ORV_TRACE_FILE");
    FILE* const file = path.empty() ? nullptr : fopen(path.c_str(), "ae");
    if (!path.empty() && file == nullptr) {
        fprintf(stderr, "orvplayerd: ORV_TRACE_FILE %s cannot be written: %s\n", path.c_str(),
                strerror(errno));
        return false;
    }
    if (file != nullptr) {
        fclose(file);
    }
    printf("ORV_TRACE_FILE: %s\n", path.empty() ? "not set" : path.c_str());
    return true;
}

// Faults of the file are traced as the service would, each with its line.
bool checkPermissions() {
    const std::string path = orvhost::PermissionPolicy::path();
    if (access(path.c_str(), F_OK) != 0) {
        printf("%s: not there; this user and root may call\n", path.c_str());
        return true;
    }
    orvhost::PermissionPolicy policy(path);
    const size_t faults = policy.faults();
    printf("%s: %zu faults\n", path.c_str(), faults);
    return faults == 0;
}

}  // namespace

int checkConfig() {
    bool good = checkChoice("ORV_AUDIO", {"auto", "pulse", "silent"});
    good = checkChoice("ORV_TRACE", {"off", "error", "warning", "info", "entry"}) && good;
    good = checkTraceFile() && good;
    good = checkPermissions() && good;
    printf("configuration %s\n", good ? "ok" : "faulty");
    return good ? EXIT_OK : EXIT_FAILED;
}

}  // namespace orvplayerd
