#include "gui/app/storeerroralert.h"

StoreErrorAlert::StoreErrorAlert(const BvError &error, QWidget *parent)
    : QMessageBox(QMessageBox::Critical, QStringLiteral("Brimvale"), error.description(), QMessageBox::Ok, parent)
{
    setObjectName(QStringLiteral("storeErrorAlert"));
    setAttribute(Qt::WA_DeleteOnClose);
    if (!error.failureReason().isEmpty())
        setInformativeText(error.failureReason());
    setDetailedText(detailsFor(error));
}

QString StoreErrorAlert::detailsFor(const BvError &error)
{
    return tr("Domain: %1, code: %2").arg(error.domain()).arg(error.code());
}
