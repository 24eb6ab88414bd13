#include "platform/sessioneventscombined.h"

SessionEventsCombined::SessionEventsCombined(std::vector<std::unique_ptr<SessionEvents>> sources, QObject *parent)
    : SessionEvents(parent)
    , m_sources(std::move(sources))
{
    for (const auto &source : m_sources) {
        connect(source.get(), &SessionEvents::computerEventDidStart, this, &SessionEvents::computerEventDidStart);
        connect(source.get(), &SessionEvents::computerEventDidStop, this, &SessionEvents::computerEventDidStop);
    }
}

SessionEventsCombined::~SessionEventsCombined() = default;

void SessionEventsCombined::start()
{
    for (const auto &source : m_sources)
        source->start();
}

void SessionEventsCombined::setTracking(bool tracking)
{
    for (const auto &source : m_sources)
        source->setTracking(tracking);
}
