#pragma once

#include "support/Api.h"

/// The known settings, addressed by a fixed index. The first and the last are sentinels that
/// bound the table.
enum ConfVariable : int {
    MIN_POSSIBLE_KVO_CONF_VAR = 0,
    ZELTO_MAILNAMES_D,
    COURIER_IMAP_ROOT_D,
    RBLSMTPD,
    CLIENT_PHP_BIN,
    LIB_CRYPTO_PATH,
    LIB_SSL_PATH,
    AWSTATS_DOC_D,
    AWSTATS_TOOLS_D,
    AWSTATS_BIN_D,
    AWSTATS_ETC_D,
    CATALINA_HOME,
    MAILMAN_VAR_D,
    MAILMAN_ROOT_D,
    PGSQL_DATA_D,
    PGSQL_BIN_D,
    MYSQL_BIN_D,
    MYSQL_VAR_D,
    WEB_STAT,
    DUMP_D,
    DUMP_TMP_D,
    NAMED_RUN_ROOT_D,
    FTPD_CONF_INC,
    HTTPD_SERVICE,
    HTTPD_LOG_D,
    HTTPD_INCLUDE_D,
    HTTPD_CONF_D,
    HTTPD_VHOSTS_D = 27, ///< the root of the virtual hosts' directories
    PRODUCT_ROOT_D,
    NAMED_OPTIONS_CONF,
    NAMED_ZONES_CONF,
    MAX_POSSIBLE_KVO_CONF_VAR = 31,
};

constexpr int confVariableCount = MAX_POSSIBLE_KVO_CONF_VAR + 1;

/// Name of a known setting as it stands in the configuration file. An index outside the table
/// counts as the nearest sentinel.
ZELTO_API const char* confVariableName(int index);

/// Compile-time default of a known setting; the same rule for an index outside the table.
ZELTO_API const char* confVariableDefault(int index);
