#pragma once

#include <QWidget>

class BvSettings;
class ExportLayoutEditor;
class ExportTokenRow;
class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;
class Store;

// The Export page of the preferences: the CSV columns and the XML attributes as rows of tokens
// ("csvRow", "xmlRow") with their add and reset buttons, the CSV separator ("separatorCombo", and
// "separatorOther" for a separator of one's own), the header-row switch ("csvHeaderRow") and the text an
// export of the newest activities would write ("csvPreview", "xmlPreview"), refreshed on every change of
// the layouts and of the journal. Every change is stored at once through `settings`.
class ExportLayoutsPage : public QWidget
{
    Q_OBJECT

public:
    // `settings` and `store` are not owned and must outlive the page.
    ExportLayoutsPage(BvSettings &settings, Store &store, QWidget *parent = nullptr);

protected:
    void showEvent(QShowEvent *event) override;

private:
    QWidget *makeCsvGroup();
    QWidget *makeXmlGroup();
    QWidget *makePreview();
    void loadSeparator();
    void onSeparatorChosen(int index);
    void onOtherSeparatorEdited(const QString &text);
    void showMessage(const QString &message);
    void updateResetButtons();
    void refreshPreview();

    BvSettings &m_settings;
    Store &m_store;
    ExportLayoutEditor *m_csvEditor;
    ExportLayoutEditor *m_xmlEditor;
    ExportTokenRow *m_csvRow = nullptr;
    ExportTokenRow *m_xmlRow = nullptr;
    QPushButton *m_csvReset = nullptr;
    QPushButton *m_xmlReset = nullptr;
    QComboBox *m_separatorCombo = nullptr;
    QLineEdit *m_separatorOther = nullptr;
    QCheckBox *m_headerRow = nullptr;
    QLabel *m_message = nullptr;
    QPlainTextEdit *m_csvPreview = nullptr;
    QPlainTextEdit *m_xmlPreview = nullptr;
    // A change came while the page was hidden: the preview is read again when it shows.
    bool m_previewStale = true;
};
