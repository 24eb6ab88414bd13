#include "agent/agentlogging.h"

Q_LOGGING_CATEGORY(lcAgent, "brimvale.agent", QtInfoMsg)
