/* SPDX-License-Identifier: Apache-2.0 */
/* A catalogue as a later version would make it: its tables have another version, and are not to be read. */
#include "inspect/vorn_inspect.h"

VORN_INSPECT_API const vorn_catalogue* vorn_package_catalogue(void);

const vorn_catalogue* vorn_package_catalogue(void) {
    static const vorn_catalogue later = {.package = "Later", .tables_version = VORN_TABLES_VERSION + 1};
    return &later;
}
