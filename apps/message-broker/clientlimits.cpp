#include "clientlimits.h"

#include "settings-service/log.h"

#include <cerrno>
#include <cstring>
#include <sys/resource.h>

ClientLimits ClientLimits::raiseDescriptorLimit() {
    rlimit descriptors{};
    if (::getrlimit(RLIMIT_NOFILE, &descriptors) == 0 &&
        descriptors.rlim_cur < descriptors.rlim_max) {
        rlimit raised = descriptors;
        raised.rlim_cur = descriptors.rlim_max;
        if (::setrlimit(RLIMIT_NOFILE, &raised) == 0) {
            descriptors = raised;
        } else {
            LOG(Warn, "Could not raise the descriptor limit: %s", std::strerror(errno));
        }
    }
    const rlim_t limit = descriptors.rlim_cur;
    const size_t most = MAX_CLIENTS + PRIVILEGED_ROOM;
    const size_t all = limit >= RESERVED_DESCRIPTORS + most ? most
                       : limit > RESERVED_DESCRIPTORS
                           ? static_cast<size_t>(limit - RESERVED_DESCRIPTORS)
                           : 1;
    const size_t anyone = all > PRIVILEGED_ROOM ? all - PRIVILEGED_ROOM : all / 2;
    return {anyone, all};
}
