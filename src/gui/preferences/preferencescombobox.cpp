#include "gui/preferences/preferencescombobox.h"

#include <QSignalBlocker>

PreferencesComboBox::PreferencesComboBox(QWidget *parent)
    : QComboBox(parent)
{
    setSizeAdjustPolicy(QComboBox::AdjustToContents);
    connect(this, &QComboBox::currentIndexChanged, this, [this](int index) {
        if (index >= 0)
            Q_EMIT valueChosen(itemData(index).toInt());
    });
}

void PreferencesComboBox::addValue(int value, const QString &title)
{
    const QSignalBlocker blocker(this);
    addItem(title, value);
}

int PreferencesComboBox::value() const
{
    return currentIndex() < 0 ? -1 : currentData().toInt();
}

void PreferencesComboBox::setValue(int value)
{
    const QSignalBlocker blocker(this);
    setCurrentIndex(findData(value));
}
