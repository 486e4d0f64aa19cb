// Writes a few records through the core-services module: the module is
// loaded from beside this program, as the SDK loads it from beside itself.
#include <cstdio>

#include "core/core_api.h"

int main()
{
    if (CLS_VelmorApi::GetInstance().LoadOSSDK("LogDemo.exe", nullptr, nullptr) != 0) {
        fprintf(stderr, "Velmor.dll not found beside LogDemo.exe\n");
        return 1;
    }
    int first = 0;
    int second = 0;
    core_log_get_level(&first, &second);
    printf("Velmor levels: %d %d\n", first, second);
    core_log_msg("LogDemo: information line, %d%% of the records are whole", 100);
    core_log_debug("LogDemo: debug line (only with a debug level of 300)");
    QUILLON_LOG_ERROR("main", __LINE__, "LogDemo: an error record, %s", "lock/date/position/text");
    printf("records written to the Velmor log file\n");
    return 0;
}
