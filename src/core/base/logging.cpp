#include "base/logging.h"

Q_LOGGING_CATEGORY(lcStore, "brimvale.store")
Q_LOGGING_CATEGORY(lcModel, "brimvale.model")
Q_LOGGING_CATEGORY(lcSettings, "brimvale.settings")
