#pragma once

#include <QMessageBox>

#include "base/bverror.h"

// The alert for a store that cannot be opened or used: the error's text, its reason, and its domain and
// code for a bug report. Open it with open(); it deletes itself when closed.
class StoreErrorAlert : public QMessageBox
{
    Q_OBJECT
public:
    explicit StoreErrorAlert(const BvError &error, QWidget *parent = nullptr);

    // "Domain: NSCocoaErrorDomain, code: 512" as the alert's details show it.
    static QString detailsFor(const BvError &error);
};
