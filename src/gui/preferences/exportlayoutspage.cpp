#include "gui/preferences/exportlayoutspage.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFontDatabase>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTabWidget>
#include <QVBoxLayout>

#include "export/activityexport.h"
#include "export/exportlayouteditor.h"
#include "export/exportpreview.h"
#include "gui/preferences/exporttokenrow.h"
#include "model/store.h"
#include "settings/bvsettings.h"

namespace {

QPlainTextEdit *makePreviewText(const QString &objectName, QWidget *parent)
{
    auto *text = new QPlainTextEdit(parent);
    text->setObjectName(objectName);
    text->setReadOnly(true);
    text->setLineWrapMode(QPlainTextEdit::NoWrap);
    text->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    text->setTabStopDistance(4 * text->fontMetrics().horizontalAdvance(u' '));
    return text;
}

} // namespace

ExportLayoutsPage::ExportLayoutsPage(BvSettings &settings, Store &store, QWidget *parent)
    : QWidget(parent)
    , m_settings(settings)
    , m_store(store)
    , m_csvEditor(new ExportLayoutEditor(settings, CSVTokenField::CSVMode, this))
    , m_xmlEditor(new ExportLayoutEditor(settings, CSVTokenField::XMLMode, this))
{
    setObjectName(QStringLiteral("exportLayoutsPage"));
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(makeCsvGroup());
    layout->addWidget(makeXmlGroup());
    m_message = new QLabel(this);
    m_message->setObjectName(QStringLiteral("layoutMessage"));
    m_message->setWordWrap(true);
    m_message->hide();
    layout->addWidget(m_message);
    layout->addWidget(makePreview(), 1);

    for (ExportLayoutEditor *editor : { m_csvEditor, m_xmlEditor }) {
        connect(editor, &ExportLayoutEditor::layoutChanged, this, [this] {
            showMessage({});
            updateResetButtons();
            refreshPreview();
        });
    }
    connect(m_xmlRow, &ExportTokenRow::messageChanged, this, &ExportLayoutsPage::showMessage);
    // The preview shows the journal as it is now, also after tracking or a sync while the page is open.
    connect(&m_store, &Store::changed, this, [this] { refreshPreview(); });
    updateResetButtons();
    refreshPreview();
}

QWidget *ExportLayoutsPage::makeCsvGroup()
{
    auto *group = new QGroupBox(tr("CSV columns"), this);
    auto *layout = new QVBoxLayout(group);
    m_csvRow = new ExportTokenRow(*m_csvEditor, group);
    m_csvRow->setObjectName(QStringLiteral("csvRow"));
    layout->addWidget(m_csvRow);

    auto *buttons = new QHBoxLayout;
    auto *add = new QPushButton(tr("Add Column"), group);
    add->setObjectName(QStringLiteral("csvAdd"));
    connect(add, &QPushButton::clicked, this, [this] { m_csvRow->showTokenMenu(m_csvEditor->addField()); });
    m_csvReset = new QPushButton(tr("Reset to Defaults"), group);
    m_csvReset->setObjectName(QStringLiteral("csvReset"));
    connect(m_csvReset, &QPushButton::clicked, m_csvEditor, &ExportLayoutEditor::resetToDefaults);
    buttons->addWidget(add);
    buttons->addWidget(m_csvReset);
    buttons->addStretch(1);

    auto *separatorLabel = new QLabel(tr("Separator:"), group);
    m_separatorCombo = new QComboBox(group);
    m_separatorCombo->setObjectName(QStringLiteral("separatorCombo"));
    separatorLabel->setBuddy(m_separatorCombo);
    for (const auto &[setting, title] : ExportLayoutEditor::separatorChoices())
        m_separatorCombo->addItem(title, setting);
    m_separatorCombo->addItem(tr("Other:"));
    m_separatorOther = new QLineEdit(group);
    m_separatorOther->setObjectName(QStringLiteral("separatorOther"));
    m_separatorOther->setMaxLength(8);
    m_separatorOther->setFixedWidth(m_separatorOther->fontMetrics().horizontalAdvance(u'M') * 5);
    m_separatorOther->setAccessibleName(tr("Other separator"));
    loadSeparator();
    connect(m_separatorCombo, &QComboBox::activated, this, &ExportLayoutsPage::onSeparatorChosen);
    connect(m_separatorOther, &QLineEdit::textEdited, this, &ExportLayoutsPage::onOtherSeparatorEdited);
    buttons->addWidget(separatorLabel);
    buttons->addWidget(m_separatorCombo);
    buttons->addWidget(m_separatorOther);
    layout->addLayout(buttons);

    m_headerRow = new QCheckBox(tr("Start the file with a row of column titles"), group);
    m_headerRow->setObjectName(QStringLiteral("csvHeaderRow"));
    m_headerRow->setChecked(m_settings.csvHeaderRow());
    connect(m_headerRow, &QCheckBox::toggled, this, [this](bool checked) {
        m_settings.setCsvHeaderRow(checked);
        refreshPreview();
    });
    layout->addWidget(m_headerRow);
    return group;
}

QWidget *ExportLayoutsPage::makeXmlGroup()
{
    auto *group = new QGroupBox(tr("XML attributes"), this);
    auto *layout = new QVBoxLayout(group);
    m_xmlRow = new ExportTokenRow(*m_xmlEditor, group);
    m_xmlRow->setObjectName(QStringLiteral("xmlRow"));
    layout->addWidget(m_xmlRow);

    auto *buttons = new QHBoxLayout;
    auto *add = new QPushButton(tr("Add Attribute"), group);
    add->setObjectName(QStringLiteral("xmlAdd"));
    connect(add, &QPushButton::clicked, this, [this] { m_xmlRow->showTokenMenu(m_xmlEditor->addField()); });
    m_xmlReset = new QPushButton(tr("Reset to Defaults"), group);
    m_xmlReset->setObjectName(QStringLiteral("xmlReset"));
    connect(m_xmlReset, &QPushButton::clicked, m_xmlEditor, &ExportLayoutEditor::resetToDefaults);
    auto *note
        = new QLabel(tr("uid, invoiced, from and to are always exported; the text is the element's content."), group);
    note->setObjectName(QStringLiteral("xmlNote"));
    note->setWordWrap(true);
    buttons->addWidget(add);
    buttons->addWidget(m_xmlReset);
    buttons->addWidget(note, 1);
    layout->addLayout(buttons);
    return group;
}

QWidget *ExportLayoutsPage::makePreview()
{
    auto *tabs = new QTabWidget(this);
    tabs->setObjectName(QStringLiteral("previewTabs"));
    tabs->setDocumentMode(true);
    m_csvPreview = makePreviewText(QStringLiteral("csvPreview"), tabs);
    m_csvPreview->setPlaceholderText(tr("Your latest activities appear here as the CSV export writes them."));
    m_xmlPreview = makePreviewText(QStringLiteral("xmlPreview"), tabs);
    tabs->addTab(m_csvPreview, tr("CSV Preview"));
    tabs->addTab(m_xmlPreview, tr("XML Preview"));
    return tabs;
}

void ExportLayoutsPage::loadSeparator()
{
    const QString stored = m_settings.csvFieldSeparator();
    const int preset = m_separatorCombo->findData(stored);
    const int other = m_separatorCombo->count() - 1;
    m_separatorCombo->setCurrentIndex(preset >= 0 ? preset : other);
    m_separatorOther->setText(preset >= 0 ? QString() : stored);
    m_separatorOther->setVisible(preset < 0);
}

void ExportLayoutsPage::onSeparatorChosen(int index)
{
    const QString preset = m_separatorCombo->itemData(index).toString();
    m_separatorOther->setVisible(preset.isEmpty());
    if (preset.isEmpty()) {
        m_separatorOther->setFocus();
        // Until something is typed, the separator in force stays.
        if (m_separatorOther->text().isEmpty())
            return;
        m_settings.setCsvFieldSeparator(m_separatorOther->text());
    } else {
        m_settings.setCsvFieldSeparator(preset);
    }
    refreshPreview();
}

void ExportLayoutsPage::onOtherSeparatorEdited(const QString &text)
{
    // An empty separator would glue the fields together; the one in force stays until one is typed.
    if (text.isEmpty())
        return;
    m_settings.setCsvFieldSeparator(text);
    refreshPreview();
}

void ExportLayoutsPage::showMessage(const QString &message)
{
    m_message->setText(message);
    m_message->setVisible(!message.isEmpty());
}

void ExportLayoutsPage::updateResetButtons()
{
    m_csvReset->setEnabled(!m_csvEditor->isDefault());
    m_xmlReset->setEnabled(!m_xmlEditor->isDefault());
}

void ExportLayoutsPage::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    if (m_previewStale)
        refreshPreview();
}

void ExportLayoutsPage::refreshPreview()
{
    // Reading the journal on every tracked activity or sync is wasted while nobody looks at the page.
    if (!isVisible()) {
        m_previewStale = true;
        return;
    }
    m_previewStale = false;
    const BvSettingsView view = m_settings.view();
    const std::pair<QPlainTextEdit *, int> previews[] = {
        { m_csvPreview, ActivityExport::CSVFormat },
        { m_xmlPreview, ActivityExport::XMLFormat },
    };
    for (const auto &[text, format] : previews) {
        const auto preview = ExportPreview::previewText(m_store, view, format);
        text->setPlainText(preview ? *preview : tr("The journal could not be read: %1").arg(preview.error().message()));
    }
}
