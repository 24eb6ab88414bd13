#include "base/logging.h"

Q_LOGGING_CATEGORY(lcStore, "brimvale.store")
Q_LOGGING_CATEGORY(lcModel, "brimvale.model")
Q_LOGGING_CATEGORY(lcSettings, "brimvale.settings")
Q_LOGGING_CATEGORY(lcExport, "brimvale.export")
Q_LOGGING_CATEGORY(lcSync, "brimvale.sync")
Q_LOGGING_CATEGORY(lcAttention, "brimvale.attention")
