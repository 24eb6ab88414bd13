#pragma once

#include <QComboBox>

// A pop-up list of integer values with titles, as the settings offer them (EnumDescription, the sync
// intervals): the value is the item's data, so the order shown may differ from the values' order. Main thread.
class PreferencesComboBox : public QComboBox
{
    Q_OBJECT
public:
    explicit PreferencesComboBox(QWidget *parent = nullptr);

    void addValue(int value, const QString &title);
    // The chosen item's value; -1 when nothing is chosen.
    int value() const;
    // Chooses the item of `value` without emitting valueChosen; nothing is chosen when no item has it.
    void setValue(int value);

Q_SIGNALS:
    // An item was chosen (by the user, or by setCurrentIndex), not by setValue.
    void valueChosen(int value);
};
