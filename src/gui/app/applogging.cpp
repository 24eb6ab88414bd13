#include "gui/app/applogging.h"

Q_LOGGING_CATEGORY(lcApp, "brimvale.app")
