#include "gui/report/bvreportsidebarcellformatter.h"

#include "report/reportsidebaritem.h"

QString BvReportSidebarCellFormatter::stringForObjectValue(const QVariant &value)
{
    if (value.metaType() != QMetaType::fromType<ReportSidebarItem>())
        return {};
    return value.value<ReportSidebarItem>().title;
}
