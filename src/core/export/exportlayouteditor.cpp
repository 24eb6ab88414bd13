#include "export/exportlayouteditor.h"

#include <algorithm>

#include "export/activityexport.h"
#include "settings/bvsettings.h"

namespace {

using V = ActivityTokenValue;

// The date tokens in the order of their menus. Start and end share their long titles, which is why they
// are offered in two groups.
constexpr int kStartValues[] = { V::StartDateUniversal, V::StartDateLocal, V::StartTime, V::StartDateTime, V::StartYear,
    V::StartMonth, V::StartDay, V::StartHour, V::StartMinute, V::StartSecond };
constexpr int kEndValues[] = { V::EndDateUniversal, V::EndDateLocal, V::EndTime, V::EndDateTime, V::EndYear,
    V::EndMonth, V::EndDay, V::EndHour, V::EndMinute, V::EndSecond };
constexpr int kDurationValues[] = { V::DurationFormatted, V::DurationMinutes, V::DurationDecimalHours };
constexpr int kActivityValues[] = { V::Text, V::ProjectName, V::TaskTags, V::Uid, V::InvoicedStatus };

template<std::size_t N>
ExportTokenChoiceGroup group(const QString &title, int type, const int (&values)[N], const CSVTokenField &field)
{
    ExportTokenChoiceGroup result { title, {}, false };
    for (const int value : values) {
        const bool checked = field.tokenType().valueType() == type && field.tokenValue().value() == value;
        result.choices.append({ type, value, ActivityTokenValue::activityValueToString(value), checked });
        result.current = result.current || checked;
    }
    return result;
}

// The name as a CSVTokenField stores it, also for the names it refuses to user attributes.
QString normalisedName(const QString &name)
{
    CSVTokenField probe
        = CSVTokenField::initWithActivityFieldMode(CSVTokenField::XMLMode, ActivityTokenType::ActivityType);
    probe.setEnabled(false);
    probe.setXmlPropertyName(name);
    return probe.xmlPropertyName();
}

} // namespace

ExportLayoutEditor::ExportLayoutEditor(BvSettings &settings, int mode, QObject *parent)
    : QObject(parent)
    , m_settings(settings)
    , m_mode(mode == CSVTokenField::XMLMode ? CSVTokenField::XMLMode : CSVTokenField::CSVMode)
    , m_fields(m_mode == CSVTokenField::XMLMode ? settings.getXMLFormat() : settings.getCSVFormat())
{ }

qsizetype ExportLayoutEditor::fixedCount() const
{
    return std::count_if(
        m_fields.cbegin(), m_fields.cend(), [](const CSVTokenField &field) { return !field.enabled(); });
}

bool ExportLayoutEditor::isEditable(qsizetype index) const
{
    return index >= 0 && index < m_fields.size() && m_fields.at(index).enabled();
}

QString ExportLayoutEditor::title(qsizetype index) const
{
    if (index < 0 || index >= m_fields.size())
        return {};
    const CSVTokenField &field = m_fields.at(index);
    if (m_mode == CSVTokenField::CSVMode)
        return field.tokenValue().descriptionShort();
    const QString name = field.xmlPropertyName();
    return tr("%1: %2").arg(name.isEmpty() ? tr("(no name)") : name, field.tokenValue().descriptionShort());
}

QList<ExportTokenChoiceGroup> ExportLayoutEditor::choices(qsizetype index) const
{
    if (index < 0 || index >= m_fields.size())
        return {};
    const CSVTokenField &field = m_fields.at(index);
    return {
        group(tr("Start Date/Time"), ActivityTokenType::DateType, kStartValues, field),
        group(tr("End Date/Time"), ActivityTokenType::DateType, kEndValues, field),
        group(ActivityTokenType::activityTokenToString(ActivityTokenType::DurationType),
            ActivityTokenType::DurationType, kDurationValues, field),
        group(ActivityTokenType::activityTokenToString(ActivityTokenType::ActivityType),
            ActivityTokenType::ActivityType, kActivityValues, field),
    };
}

qsizetype ExportLayoutEditor::addField()
{
    CSVTokenField field;
    if (m_mode == CSVTokenField::XMLMode) {
        field = CSVTokenField::initWithActivityFieldMode(
            CSVTokenField::XMLMode, ActivityTokenType::ActivityType, ActivityTokenValue::ProjectName);
        const auto taken = [this](const QString &name) {
            return std::any_of(m_fields.cbegin(), m_fields.cend(),
                [&](const CSVTokenField &other) { return other.xmlPropertyName() == name; });
        };
        QString name = QStringLiteral("project");
        for (int n = 2; taken(name); ++n)
            name = QStringLiteral("project-%1").arg(n);
        field.setXmlPropertyName(name);
    }
    field.tokenValue().setShowShortDescription(true);
    m_fields.append(field);
    store();
    return m_fields.size() - 1;
}

bool ExportLayoutEditor::removeField(qsizetype index)
{
    if (!isEditable(index))
        return false;
    m_fields.removeAt(index);
    store();
    return true;
}

bool ExportLayoutEditor::moveField(qsizetype from, qsizetype insertBefore)
{
    if (!isEditable(from) || insertBefore < 0 || insertBefore > m_fields.size())
        return false;
    qsizetype to = std::max(insertBefore, fixedCount());
    if (to > from)
        --to;
    if (to == from)
        return false;
    m_fields.move(from, to);
    store();
    return true;
}

bool ExportLayoutEditor::chooseToken(qsizetype index, int tokenType, int tokenValue)
{
    if (!isEditable(index))
        return false;
    CSVTokenField &field = m_fields[index];
    if (field.tokenType().valueType() == tokenType && field.tokenValue().value() == tokenValue)
        return false;
    field.setTokenType(ActivityTokenType(tokenType));
    field.setTokenValue(tokenValue);
    store();
    return true;
}

QString ExportLayoutEditor::renameField(qsizetype index, const QString &name)
{
    if (m_mode != CSVTokenField::XMLMode || !isEditable(index))
        return tr("This attribute is always exported as it is.");
    const QString normalised = normalisedName(name);
    if (normalised.isEmpty())
        return tr("Type a name for the attribute.");
    if (!ActivityExport::isXmlAttributeName(normalised))
        return tr("\"%1\" cannot name an XML attribute: start with a letter or \"_\", then use letters, digits, "
                  "\"-\", \".\" or \"_\".")
            .arg(normalised);
    for (qsizetype i = 0; i < m_fields.size(); ++i) {
        if (i != index && m_fields.at(i).xmlPropertyName() == normalised)
            return tr("Another attribute is already named \"%1\".").arg(normalised);
    }
    if (m_fields.at(index).xmlPropertyName() == normalised)
        return {};
    m_fields[index].setXmlPropertyName(normalised);
    store();
    return {};
}

void ExportLayoutEditor::resetToDefaults()
{
    m_fields = defaults();
    store();
}

bool ExportLayoutEditor::isDefault() const
{
    return m_fields == defaults();
}

QList<std::pair<QString, QString>> ExportLayoutEditor::separatorChoices()
{
    return {
        { QStringLiteral(";"), tr("Semicolon (;)") },
        { QStringLiteral(","), tr("Comma (,)") },
        { QStringLiteral("{TAB}"), tr("Tab") },
        { QStringLiteral("|"), tr("Vertical bar (|)") },
    };
}

QList<CSVTokenField> ExportLayoutEditor::defaults() const
{
    QList<CSVTokenField> fields
        = m_mode == CSVTokenField::XMLMode ? BvSettings::getDefaultXMLFormat() : BvSettings::getDefaultCSVFormat();
    for (CSVTokenField &field : fields)
        field.tokenValue().setShowShortDescription(true);
    return fields;
}

void ExportLayoutEditor::store()
{
    if (m_mode == CSVTokenField::XMLMode)
        m_settings.setXMLFormat(m_fields);
    else
        m_settings.setCSVFormat(m_fields);
    Q_EMIT layoutChanged();
}
