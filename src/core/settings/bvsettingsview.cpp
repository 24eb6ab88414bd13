#include "settings/bvsettingsview.h"

#include <tuple>

#include "settings/userdefaults.h"

namespace {

namespace Key {
const auto CsvFieldSeparator = QStringLiteral("csvFieldSeparator");
const auto CsvHeaderRow = QStringLiteral("csvHeaderRow");
const auto CsvRowFormat = QStringLiteral("csv_row_format");
const auto XmlProperties = QStringLiteral("xml_properties");
const auto SyncMethod = QStringLiteral("syncMethod");
const auto SyncFolderPath = QStringLiteral("syncFolderPath");
} // namespace Key

} // namespace

BvSettingsView::BvSettingsView(const UserDefaults &defaults)
    : m_defaults(&defaults)
{ }

BvSettingsView BvSettingsView::standard()
{
    static UserDefaults *const s_defaults = [] {
        UserDefaults *defaults = UserDefaults::standardUserDefaults();
        // A fresh installation exports in the bundled layouts, as the app would.
        defaults->registerDefaultsFromResource();
        return defaults;
    }();
    return BvSettingsView(*s_defaults);
}

QString BvSettingsView::csvFieldSeparator() const
{
    const QString separator = m_defaults->stringForKey(Key::CsvFieldSeparator);
    return separator.isEmpty() ? QStringLiteral(";") : separator;
}

bool BvSettingsView::csvHeaderRow() const
{
    return m_defaults->boolForKey(Key::CsvHeaderRow);
}

QList<CSVTokenField> BvSettingsView::getCSVFormat() const
{
    // A stored layout that cannot be read gives no columns rather than the default: the user chose a
    // layout, and a silent switch to another one would go unnoticed in the exported files.
    QList<CSVTokenField> format = m_defaults->objectForKey(Key::CsvRowFormat).isValid()
        ? CSVTokenField::unarchive(m_defaults->stringForKey(Key::CsvRowFormat))
        : defaultCSVFormat();
    for (CSVTokenField &field : format)
        field.tokenValue().setShowShortDescription(true);
    return format;
}

QList<CSVTokenField> BvSettingsView::getXMLFormat() const
{
    QList<CSVTokenField> format = defaultXMLFormat();
    if (m_defaults->objectForKey(Key::XmlProperties).isValid())
        format += CSVTokenField::unarchive(m_defaults->stringForKey(Key::XmlProperties));
    for (CSVTokenField &field : format)
        field.tokenValue().setShowShortDescription(true);
    return format;
}

QList<CSVTokenField> BvSettingsView::defaultCSVFormat()
{
    const int mode = CSVTokenField::CSVMode;
    return {
        CSVTokenField::initWithActivityFieldMode(mode, ActivityTokenType::DateType, ActivityTokenValue::StartDateLocal),
        CSVTokenField::initWithActivityFieldMode(mode, ActivityTokenType::DateType, ActivityTokenValue::StartTime),
        CSVTokenField::initWithActivityFieldMode(
            mode, ActivityTokenType::DurationType, ActivityTokenValue::DurationFormatted),
        CSVTokenField::initWithActivityFieldMode(
            mode, ActivityTokenType::ActivityType, ActivityTokenValue::ProjectName),
        CSVTokenField::initWithActivityFieldMode(mode, ActivityTokenType::ActivityType, ActivityTokenValue::Text),
        CSVTokenField::initWithActivityFieldMode(
            mode, ActivityTokenType::ActivityType, ActivityTokenValue::InvoicedStatus),
    };
}

QList<CSVTokenField> BvSettingsView::defaultXMLFormat()
{
    const std::tuple<int, int, QString> fixed[] = {
        { ActivityTokenType::ActivityType, ActivityTokenValue::Uid, QStringLiteral("uid") },
        { ActivityTokenType::ActivityType, ActivityTokenValue::InvoicedStatus, QStringLiteral("invoiced") },
        { ActivityTokenType::DateType, ActivityTokenValue::StartDateTime, QStringLiteral("from") },
        { ActivityTokenType::DateType, ActivityTokenValue::EndDateTime, QStringLiteral("to") },
    };
    QList<CSVTokenField> format;
    format.reserve(std::size(fixed));
    for (const auto &[type, value, name] : fixed) {
        CSVTokenField field = CSVTokenField::initWithActivityFieldMode(CSVTokenField::XMLMode, type, value);
        // Disabled first: the names of the fixed attributes are refused for the user's own.
        field.setEnabled(false);
        field.setXmlPropertyName(name);
        format.append(field);
    }
    return format;
}

int BvSettingsView::syncMethod() const
{
    const qint64 method = m_defaults->integerForKey(Key::SyncMethod);
    return method < 0 || method > 2 ? 0 : int(method);
}

QString BvSettingsView::syncFolderPath() const
{
    return m_defaults->stringForKey(Key::SyncFolderPath);
}
