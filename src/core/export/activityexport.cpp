#include "export/activityexport.h"

#include <algorithm>

#include <QIODevice>
#include <QSaveFile>
#include <QUrl>
#include <QVarLengthArray>
#include <QXmlStreamWriter>

#include "base/logging.h"
#include "export/activitycsvformatter.h"
#include "export/activityfieldvalue.h"
#include "export/dateformattercache.h"

namespace {

// Rows are handed to the device in pieces of about this many characters, which bounds the memory of an
// export whatever its size.
constexpr qsizetype kFlushAtChars = 256 * 1024;

bool flush(QString &buffer, QIODevice &device)
{
    if (buffer.isEmpty())
        return true;
    const QByteArray bytes = buffer.toUtf8();
    buffer.resize(0);
    return device.write(bytes) == bytes.size();
}

bool isXmlChar(char32_t c)
{
    return c == 0x9 || c == 0xA || c == 0xD || (c >= 0x20 && c <= 0xD7FF) || (c >= 0xE000 && c <= 0xFFFD)
        || (c >= 0x10000 && c <= 0x10FFFF);
}

// XML 1.0 cannot carry control characters, unpaired surrogates or U+FFFE/U+FFFF, not even escaped; a
// writer that passes them on makes a file no parser reads back.
QString xmlSafe(const QString &text)
{
    const qsizetype size = text.size();
    qsizetype i = 0;
    for (; i < size; ++i) {
        const QChar c = text.at(i);
        if (c.isHighSurrogate() && i + 1 < size && text.at(i + 1).isLowSurrogate()) {
            ++i;
            continue;
        }
        if (c.isSurrogate() || !isXmlChar(c.unicode()))
            break;
    }
    if (i == size)
        return text;
    QString safe = text;
    for (; i < size; ++i) {
        const QChar c = safe.at(i);
        if (c.isHighSurrogate() && i + 1 < size && safe.at(i + 1).isLowSurrogate()) {
            ++i;
            continue;
        }
        if (c.isSurrogate() || !isXmlChar(c.unicode()))
            safe[i] = QChar::ReplacementCharacter;
    }
    return safe;
}

// An attribute name a namespace-aware parser accepts: a letter or "_" first, then letters, digits, marks,
// "-", "." or "_"; no ":" (it would need a namespace declaration) and not "xmlns".
bool isXmlName(const QString &name)
{
    if (name.isEmpty() || name == QLatin1String("xmlns"))
        return false;
    for (qsizetype i = 0; i < name.size(); ++i) {
        const QChar c = name.at(i);
        const bool start = c.isLetter() || c == u'_';
        if (i == 0 ? !start : !(start || c.isDigit() || c.isMark() || c == u'-' || c == u'.' || c == QChar(0xB7)))
            return false;
    }
    return true;
}

// The parser turns a carriage return in element text into a line feed; written as a character reference
// it comes back as it was.
void writeText(QXmlStreamWriter &writer, const QString &text)
{
    qsizetype from = 0;
    for (qsizetype cr = text.indexOf(u'\r'); cr >= 0; cr = text.indexOf(u'\r', from)) {
        if (cr > from)
            writer.writeCharacters(text.mid(from, cr - from));
        writer.writeEntityReference(QStringLiteral("#13"));
        from = cr + 1;
    }
    if (from < text.size())
        writer.writeCharacters(from == 0 ? text : text.mid(from));
}

QString localPath(const QString &toUrl)
{
    if (toUrl.startsWith(QLatin1String("file:"), Qt::CaseInsensitive))
        return QUrl(toUrl).toLocalFile();
    return toUrl;
}

// The rows an export takes: live activities or plain records of stored ones.
const Activity *itemOf(const ActivityPtr &activity)
{
    return activity.get();
}

const ActivityRecord *itemOf(const ActivityRecord &record)
{
    return &record;
}

QString textOf(const Activity &activity)
{
    return activity.text();
}

QString textOf(const ActivityRecord &record)
{
    return record.text;
}

template<typename Rows>
bool writeCSVRows(const Rows &rows, const QList<CSVTokenField> &csvFormat, const QString &separator, bool headerRow,
    QIODevice &device)
{
    const ActivityCSVFormatter formatter(csvFormat);
    QString buffer;
    buffer.reserve(kFlushAtChars + 4096);
    bool first = true;
    // A layout without columns has no titles either: its file stays empty.
    if (headerRow && !csvFormat.isEmpty()) {
        buffer = ActivityExport::csvHeaderRow(csvFormat, separator);
        first = false;
    }
    for (const auto &row : rows) {
        const auto *activity = itemOf(row);
        if (!activity)
            continue;
        // A line end between rows and none after the last: the file ends with the last field.
        if (!first)
            buffer += QLatin1String("\r\n");
        first = false;
        formatter.appendRowForActivity(buffer, *activity, separator);
        if (buffer.size() >= kFlushAtChars && !flush(buffer, device))
            return false;
    }
    return flush(buffer, device);
}

template<typename Rows> bool writeXMLRows(const Rows &rows, const QList<CSVTokenField> &xmlFormat, QIODevice &device)
{
    // The names do not depend on the activity, so the attributes to write are settled once.
    struct Attribute
    {
        qsizetype field;
        QString name;
    };
    QVarLengthArray<Attribute, 16> attributes;
    for (qsizetype i = 0; i < xmlFormat.size(); ++i) {
        const QString name = xmlFormat.at(i).xmlPropertyName();
        if (!isXmlName(name))
            continue;
        const bool taken = std::any_of(
            attributes.cbegin(), attributes.cend(), [&](const Attribute &attribute) { return attribute.name == name; });
        if (!taken)
            attributes.append(Attribute { i, name });
    }

    QXmlStreamWriter writer(&device);
    writer.setAutoFormatting(true);
    writer.writeStartDocument();
    writer.writeStartElement(QStringLiteral("activities"));
    for (const auto &row : rows) {
        const auto *activity = itemOf(row);
        if (!activity)
            continue;
        writer.writeStartElement(QStringLiteral("activity"));
        for (const Attribute &attribute : attributes) {
            const QString value = ActivityFieldValue::valueForField(*activity, xmlFormat.at(attribute.field));
            writer.writeAttribute(attribute.name, xmlSafe(value));
        }
        writeText(writer, xmlSafe(textOf(*activity)));
        writer.writeEndElement();
        if (writer.hasError())
            return false;
    }
    writer.writeEndElement();
    writer.writeEndDocument();
    return !writer.hasError();
}

template<typename Rows>
bool writeRows(const Rows &rows, QIODevice &device, int withFormat, const BvSettingsView &settings)
{
    if (withFormat == ActivityExport::XMLFormat)
        return writeXMLRows(rows, settings.getXMLFormat(), device);
    return writeCSVRows(rows, settings.getCSVFormat(),
        ActivityExport::separatorFromSetting(settings.csvFieldSeparator()), settings.csvHeaderRow(), device);
}

template<typename Rows>
QString exportToFile(
    const Rows &rows, const QString &toUrl, int withFormat, const std::optional<BvSettingsView> &settings)
{
    const QString path = localPath(toUrl);
    QSaveFile file(path);
    bool written = !path.isEmpty() && file.open(QIODevice::WriteOnly);
    written = written && writeRows(rows, file, withFormat, settings ? *settings : BvSettingsView::standard());
    written = written && file.commit();
    DateFormatterCache::clearCache();
    if (!written) {
        const QString reason = path.isEmpty() ? ActivityExport::tr("No file name given") : file.errorString();
        qCWarning(lcExport).noquote() << QStringLiteral("Export to %1 failed: %2").arg(path, reason);
        return ActivityExport::failureMessage(withFormat, reason);
    }
    return {};
}

template<typename Rows>
QString exportToDevice(
    const Rows &rows, QIODevice &toDevice, int withFormat, const std::optional<BvSettingsView> &settings)
{
    const bool written = toDevice.isWritable()
        && writeRows(rows, toDevice, withFormat, settings ? *settings : BvSettingsView::standard());
    DateFormatterCache::clearCache();
    if (!written) {
        const QString reason
            = toDevice.isWritable() ? toDevice.errorString() : ActivityExport::tr("Not open for writing");
        qCWarning(lcExport).noquote() << QStringLiteral("Export failed: %1").arg(reason);
        return ActivityExport::failureMessage(withFormat, reason);
    }
    return {};
}

} // namespace

QString ActivityExport::exportActivities(const QList<ActivityPtr> &activities, const QString &toUrl, int withFormat,
    const std::optional<BvSettingsView> &settings)
{
    return exportToFile(activities, toUrl, withFormat, settings);
}

QString ActivityExport::exportActivities(const QList<ActivityPtr> &activities, QIODevice &toDevice, int withFormat,
    const std::optional<BvSettingsView> &settings)
{
    return exportToDevice(activities, toDevice, withFormat, settings);
}

QString ActivityExport::exportRecords(const std::vector<ActivityRecord> &activities, const QString &toUrl,
    int withFormat, const std::optional<BvSettingsView> &settings)
{
    return exportToFile(activities, toUrl, withFormat, settings);
}

QString ActivityExport::exportRecords(const std::vector<ActivityRecord> &activities, QIODevice &toDevice,
    int withFormat, const std::optional<BvSettingsView> &settings)
{
    return exportToDevice(activities, toDevice, withFormat, settings);
}

bool ActivityExport::isXmlAttributeName(const QString &name)
{
    return isXmlName(name);
}

bool ActivityExport::showsTasks(const QList<CSVTokenField> &format)
{
    return std::any_of(format.cbegin(), format.cend(), [](const CSVTokenField &field) {
        return field.tokenType().valueType() == ActivityTokenType::ActivityType
            && field.tokenValue().value() == ActivityTokenValue::TaskTags;
    });
}

QString ActivityExport::failureMessage(int withFormat, const QString &reason)
{
    const QString failure = withFormat == XMLFormat ? xmlFailureMessage() : csvFailureMessage();
    // The designed message says what failed; the system's reason says what to fix.
    return reason.isEmpty() ? failure : failure + QLatin1Char(' ') + reason;
}

bool ActivityExport::writeCSV(const QList<ActivityPtr> &activities, const QList<CSVTokenField> &csvFormat,
    const QString &separator, QIODevice &device, bool headerRow)
{
    return writeCSVRows(activities, csvFormat, separator, headerRow, device);
}

QString ActivityExport::csvHeaderRow(const QList<CSVTokenField> &csvFormat, const QString &separator)
{
    QString row;
    for (qsizetype i = 0; i < csvFormat.size(); ++i) {
        if (i > 0)
            row += separator;
        // Quoted like every field, so that a title holding the separator (a date example written
        // "23.10.10" under a "." separator) still reads as one column.
        QString title = csvFormat.at(i).tokenValue().descriptionShort();
        title.replace(u'"', QLatin1String("\"\""));
        row += u'"' + title + u'"';
    }
    return row;
}

bool ActivityExport::writeXML(
    const QList<ActivityPtr> &activities, const QList<CSVTokenField> &xmlFormat, QIODevice &device)
{
    return writeXMLRows(activities, xmlFormat, device);
}

QString ActivityExport::separatorFromSetting(const QString &csvFieldSeparator)
{
    if (csvFieldSeparator == QLatin1String("{TAB}"))
        return QStringLiteral("\t");
    return csvFieldSeparator;
}
