// restore_reboot.cpp: back to factory values, and a restart of the device through its process 1.

#include <csignal>
#include <unistd.h>

#include "applatform/commands.h"
#include "applatform/config_store.h"
#include "applatform/system.h"
#include "apsupport/product.h"
#include "foundation/config_value.h"
#include "foundation/console.h"
#include "foundation/trace.h"

using namespace ap;

void systool_restore(void) {
    AP_PROD_TRACE();
    doSystemCmd("rm -rf %s", "/cfg/log/log.tar.gz");
    unlink(ConfigValue("syslogs.system.path").c_str());
    monitor_stop("netcheck");
    RestoreValue();
    SetValue("set_default", "1");
    CommitCfm();
    sleep(2);
}

void systool_reboot(void) {
    AP_PROD_TRACE();
    log_file_sync_to_flash();
    AP_CONSOLE(Colour::yellow, "rebooting ...");
    kill(1, SIGTERM);
    sleep(3);
}

void systool_restore_reboot(void) {
    AP_PROD_TRACE();
    AP_CONSOLE(Colour::yellow, "restoring and rebooting ...");
    systool_restore();
    systool_reboot();
}
