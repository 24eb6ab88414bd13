#include <QAbstractItemModelTester>
#include <QSignalSpy>
#include <QTest>

#include "export/bvdurationtransformer.h"
#include "fakes/fakeclock.h"
#include "model/journalqueries.h"
#include "model/storecontext.h"
#include "report/activitydeletion.h"
#include "report/activityinvoicing.h"
#include "report/reportactionmenu.h"
#include "report/reportlayout.h"
#include "report/reportquery.h"
#include "report/reportselection.h"
#include "report/reporttablemodel.h"
#include "report/reporttotals.h"
#include "support/isolatedhome.h"

using Range = ReportQuery::Range;
using Item = ReportActionMenu::Item;

namespace {
QDateTime local(const QString &text)
{
    return QDateTime::fromString(text, QStringLiteral("yyyy-MM-dd HH:mm"));
}
} // namespace

// The report's rules without a window, in Europe/Berlin (DST on 31 March 2024).
class TestReportQuery : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();

    void rangeBoundsPerMode_data();
    void rangeBoundsPerMode();
    void steppingMovesThePickedDateByTheMode_data();
    void steppingMovesThePickedDateByTheMode();
    void queryCarriesEachConditionOnlyWhenSet();
    void overlappingActivitiesAreListed_data();
    void overlappingActivitiesAreListed();
    void searchInMemoryMatchesTheStore_data();
    void searchInMemoryMatchesTheStore();
    void filterStatusAndSidebarNarrowTheList();
    void updatesRefreshTheirRowsInPlace_data();
    void updatesRefreshTheirRowsInPlace();
    void totalsLabel_data();
    void totalsLabel();
    void actionMenuItems_data();
    void actionMenuItems();
    void mixedInvoicedSelectionBecomesAllInvoiced();
    void deletingSkipsTheRunningActivityAndLeavesRecords();
    void rowRules_data();
    void rowRules();
    void copyTextHasEveryColumnInOrder();
    void sidebarWidthOnOpening_data();
    void sidebarWidthOnOpening();
    void columnsLeaveTheTextItsRoom_data();
    void columnsLeaveTheTextItsRoom();

private:
    QString add(const QString &text, const QDateTime &from, const QDateTime &to, bool invoiced = false);
    QStringList listedTexts(const ActivityQuery &query);

    std::unique_ptr<IsolatedHome> m_home;
    FakeClock m_clock;
    std::unique_ptr<Store> m_store;
};

void TestReportQuery::init()
{
    m_home = std::make_unique<IsolatedHome>();
    StoreOptions options;
    options.applicationFilesDirectory = m_home->applicationFilesDirectory();
    options.clock = &m_clock;
    auto store = Store::open(options);
    QVERIFY(store);
    m_store = std::move(*store);
}

void TestReportQuery::cleanup()
{
    m_store.reset();
    m_home.reset();
}

QString TestReportQuery::add(const QString &text, const QDateTime &from, const QDateTime &to, bool invoiced)
{
    auto context = m_store->newContext();
    ActivityPtr activity = context->insertActivity();
    activity->setText(text);
    activity->setTimeFrom(from);
    activity->setTimeTo(to);
    activity->setIsInvoiced(invoiced);
    if (!context->save())
        qFatal("cannot save");
    return activity->uid();
}

QStringList TestReportQuery::listedTexts(const ActivityQuery &query)
{
    ReportTableModel model(*m_store);
    if (!model.load(query))
        qFatal("cannot load");
    QStringList texts;
    for (int row = 0; row < model.rowCount(); ++row)
        texts.append(model.record(row).text);
    return texts;
}

void TestReportQuery::rangeBoundsPerMode_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<QDate>("picked");
    QTest::addColumn<bool>("toolbar");
    QTest::addColumn<int>("firstDay");
    QTest::addColumn<QString>("from");
    QTest::addColumn<QString>("to");
    const QDate wednesday(2024, 3, 13);
    QTest::newRow("day") << 1 << wednesday << true << 1 << "2024-03-13 00:00"
                         << "2024-03-14 00:00";
    QTest::newRow("day of the spring change is 23 hours") << 1 << QDate(2024, 3, 31) << true << 1 << "2024-03-31 00:00"
                                                          << "2024-04-01 00:00";
    QTest::newRow("week from monday, upper bound seven days after the picked day")
        << 2 << wednesday << true << 1 << "2024-03-11 00:00"
        << "2024-03-20 00:00";
    QTest::newRow("week from sunday") << 2 << wednesday << true << 7 << "2024-03-10 00:00"
                                      << "2024-03-20 00:00";
    QTest::newRow("week picked on its first day") << 2 << QDate(2024, 3, 11) << true << 1 << "2024-03-11 00:00"
                                                  << "2024-03-18 00:00";
    QTest::newRow("week across the year") << 2 << QDate(2025, 1, 1) << true << 1 << "2024-12-30 00:00"
                                          << "2025-01-08 00:00";
    QTest::newRow("month") << 3 << wednesday << true << 1 << "2024-03-01 00:00"
                           << "2024-04-01 00:00";
    QTest::newRow("december") << 3 << QDate(2024, 12, 31) << true << 1 << "2024-12-01 00:00"
                              << "2025-01-01 00:00";
    QTest::newRow("all") << 4 << wednesday << true << 1 << ""
                         << "";
    QTest::newRow("toolbar hidden") << 1 << wednesday << false << 1 << ""
                                    << "";
}

void TestReportQuery::rangeBoundsPerMode()
{
    QFETCH(int, mode);
    QFETCH(QDate, picked);
    QFETCH(bool, toolbar);
    QFETCH(int, firstDay);
    QFETCH(QString, from);
    QFETCH(QString, to);
    const Range range = ReportQuery::filterDateRange(mode, picked, toolbar, Qt::DayOfWeek(firstDay));
    if (from.isEmpty()) {
        QCOMPARE(range, Range());
        return;
    }
    QCOMPARE(range.from, local(from).toUTC());
    QCOMPARE(range.to, local(to).toUTC());
}

void TestReportQuery::steppingMovesThePickedDateByTheMode_data()
{
    QTest::addColumn<int>("segment");
    QTest::addColumn<int>("mode");
    QTest::addColumn<QString>("expected");
    QTest::newRow("day back") << 0 << 1 << "2024-01-30 14:35";
    QTest::newRow("day forward") << 5 << 1 << "2024-02-01 14:35";
    QTest::newRow("week back") << 0 << 2 << "2024-01-24 14:35";
    QTest::newRow("month forward from the 31st") << 5 << 3 << "2024-02-29 14:35";
    QTest::newRow("all does not move") << 0 << 4 << "2024-01-31 14:35";
    QTest::newRow("a mode segment does not move") << 3 << 1 << "2024-01-31 14:35";
}

void TestReportQuery::steppingMovesThePickedDateByTheMode()
{
    QFETCH(int, segment);
    QFETCH(int, mode);
    QFETCH(QString, expected);
    QCOMPARE(ReportQuery::steppedDate(segment, mode, local(QStringLiteral("2024-01-31 14:35"))), local(expected));
}

void TestReportQuery::queryCarriesEachConditionOnlyWhenSet()
{
    const ActivityQuery none = ReportQuery::activityQuery({});
    QCOMPARE(none.order, ActivityQuery::Order::TimeFromDescending);
    QVERIFY(!none.overlapsFrom && !none.overlapsUntil && !none.textLike && !none.projectIds && !none.taskIds
        && !none.isInvoiced);

    ReportQuery::Filter filter;
    filter.range = ReportQuery::filterDateRange(1, QDate(2024, 3, 13), true, Qt::Monday);
    filter.searchText = QStringLiteral("ab");
    filter.projectIds = { 4 };
    filter.taskIds = { 7, 8 };
    filter.filterStatus = ReportQuery::OnlyNotInvoiced;
    const ActivityQuery all = ReportQuery::activityQuery(filter);
    QCOMPARE(all.overlapsFrom, filter.range.from);
    QCOMPARE(all.overlapsUntil, filter.range.to);
    QCOMPARE(all.textLike, QStringLiteral("*ab*"));
    QCOMPARE(all.projectIds, QList<qint64> { 4 });
    QCOMPARE(all.taskIds, (QList<qint64> { 7, 8 }));
    QCOMPARE(all.isInvoiced, false);
    filter.filterStatus = ReportQuery::OnlyInvoiced;
    QCOMPARE(ReportQuery::activityQuery(filter).isInvoiced, true);

    // Only one bound (never produced by a mode) is no range at all.
    filter.range.to.reset();
    QVERIFY(!ReportQuery::activityQuery(filter).overlapsFrom);

    QCOMPARE(ReportQuery::searchText(true, u"tool"_qs, true, u"popup"_qs), u"tool"_qs);
    QCOMPARE(ReportQuery::searchText(false, u"tool"_qs, true, u"popup"_qs), u"popup"_qs);
    QCOMPARE(ReportQuery::searchText(false, u"tool"_qs, false, u"popup"_qs), QString());
    QCOMPARE(QList<int>({ ReportQuery::nextFilterStatus(0), ReportQuery::nextFilterStatus(1),
                 ReportQuery::nextFilterStatus(2) }),
        QList<int>({ 1, 2, 0 }));
}

void TestReportQuery::overlappingActivitiesAreListed_data()
{
    QTest::addColumn<QString>("from");
    QTest::addColumn<QString>("to");
    QTest::addColumn<int>("mode");
    QTest::addColumn<QDate>("day");
    QTest::addColumn<bool>("listed");
    const QDate first(2024, 3, 13);
    const QDate second(2024, 3, 14);
    QTest::newRow("23-01 on its first day") << "2024-03-13 23:00"
                                            << "2024-03-14 01:00" << 1 << first << true;
    QTest::newRow("23-01 on its second day") << "2024-03-13 23:00"
                                             << "2024-03-14 01:00" << 1 << second << true;
    QTest::newRow("ending at midnight touches the next day") << "2024-03-13 22:00"
                                                             << "2024-03-14 00:00" << 1 << second << true;
    QTest::newRow("starting at the next midnight is outside") << "2024-03-14 00:00"
                                                              << "2024-03-14 01:00" << 1 << first << false;
    QTest::newRow("the day before") << "2024-03-12 10:00"
                                    << "2024-03-12 11:00" << 1 << first << false;
    QTest::newRow("week reaches seven days past the picked day") << "2024-03-19 10:00"
                                                                 << "2024-03-19 11:00" << 2 << first << true;
    QTest::newRow("month across its end") << "2024-02-29 23:00"
                                          << "2024-03-01 01:00" << 3 << first << true;
}

void TestReportQuery::overlappingActivitiesAreListed()
{
    QFETCH(QString, from);
    QFETCH(QString, to);
    QFETCH(int, mode);
    QFETCH(QDate, day);
    QFETCH(bool, listed);
    add(u"late"_qs, local(from), local(to));
    ReportQuery::Filter filter;
    filter.range = ReportQuery::filterDateRange(mode, day, true, Qt::Monday);
    QCOMPARE(listedTexts(ReportQuery::activityQuery(filter)).size(), listed ? 1 : 0);
}

void TestReportQuery::searchInMemoryMatchesTheStore_data()
{
    QTest::addColumn<QString>("search");
    QTest::addColumn<QStringList>("expected");
    QTest::newRow("case-insensitive part") << "ab" << QStringList { u"xABy"_qs, u"ab"_qs };
    QTest::newRow("empty adds no condition")
        << "" << QStringList { u"xABy"_qs, u"ab"_qs, u"ä Straße"_qs, u"a1c"_qs, u""_qs };
    QTest::newRow("question mark is one character") << "a?c" << QStringList { u"a1c"_qs };
    QTest::newRow("star") << "a*c" << QStringList { u"a1c"_qs };
    QTest::newRow("folded") << "Ä STR" << QStringList { u"ä Straße"_qs };
    QTest::newRow("no match") << "zz" << QStringList {};
}

void TestReportQuery::searchInMemoryMatchesTheStore()
{
    QFETCH(QString, search);
    QFETCH(QStringList, expected);
    const QDateTime start = local(u"2024-03-13 08:00"_qs);
    const QStringList texts { u""_qs, u"a1c"_qs, u"ä Straße"_qs, u"ab"_qs, u"xABy"_qs };
    for (int i = 0; i < texts.size(); ++i)
        add(texts[i], start.addSecs(3600 * i), start.addSecs(3600 * i + 60));

    ReportQuery::Filter filter;
    ReportTableModel model(*m_store);
    QAbstractItemModelTester tester(&model);
    QVERIFY(model.load(ReportQuery::activityQuery(filter)));
    filter.searchText = search;
    const ActivityQuery query = ReportQuery::activityQuery(filter);
    // The second load filters the records already read, in memory; the store answers the same.
    QVERIFY(model.load(query));
    QStringList inMemory;
    for (int row = 0; row < model.rowCount(); ++row)
        inMemory.append(model.record(row).text);
    QCOMPARE(inMemory, expected);
    QCOMPARE(listedTexts(query), expected);
    QCOMPARE(model.totalSeconds(), 60.0 * expected.size());
}

void TestReportQuery::filterStatusAndSidebarNarrowTheList()
{
    const QDateTime start = local(u"2024-03-13 08:00"_qs);
    add(u"@Acme #design one"_qs, start, start.addSecs(60), true);
    add(u"@Acme two"_qs, start.addSecs(120), start.addSecs(180), false);
    add(u"@Other #design #call three"_qs, start.addSecs(240), start.addSecs(300), false);
    auto context = m_store->newContext();
    const qint64 acme = context->findProject(u"Acme"_qs)->objectId();
    const qint64 design = context->findTask(u"design"_qs)->objectId();
    const qint64 call = context->findTask(u"call"_qs)->objectId();

    // One model loaded once filters in memory; the store answers each query itself: both must agree.
    ReportTableModel model(*m_store);
    QVERIFY(model.load(ReportQuery::activityQuery({})));
    const auto check = [&](const ReportQuery::Filter &filter, const QStringList &expected) {
        const ActivityQuery query = ReportQuery::activityQuery(filter);
        if (!model.load(query))
            return false;
        QStringList inMemory;
        for (int row = 0; row < model.rowCount(); ++row)
            inMemory.append(model.record(row).text);
        QStringList stored;
        const auto records = JournalQueries(*m_store).fetchActivityRecords(query);
        for (const ActivityRecord &record : *records)
            stored.append(record.text);
        if (inMemory != expected || stored != expected)
            qWarning() << inMemory << stored << expected;
        return inMemory == expected && stored == expected;
    };
    ReportQuery::Filter filter;
    filter.filterStatus = ReportQuery::OnlyNotInvoiced;
    QVERIFY(check(filter, { u"@Other #design #call three"_qs, u"@Acme two"_qs }));
    filter.filterStatus = ReportQuery::OnlyInvoiced;
    QVERIFY(check(filter, { u"@Acme #design one"_qs }));
    filter.filterStatus = ReportQuery::AllActivities;
    filter.projectIds = { acme };
    QVERIFY(check(filter, { u"@Acme two"_qs, u"@Acme #design one"_qs }));
    filter.taskIds = { design };
    QVERIFY(check(filter, { u"@Acme #design one"_qs }));
    filter.projectIds.clear();
    filter.taskIds = { call, design };
    QVERIFY(check(filter, { u"@Other #design #call three"_qs, u"@Acme #design one"_qs }));
    filter.taskIds = { call };
    filter.searchText = u"THR"_qs;
    QVERIFY(check(filter, { u"@Other #design #call three"_qs }));
}

void TestReportQuery::updatesRefreshTheirRowsInPlace_data()
{
    QTest::addColumn<QString>("change");
    QTest::addColumn<QString>("search");
    QTest::addColumn<int>("invoicedFilter"); // -1 none, else ReportQuery's filter status
    QTest::addColumn<bool>("inPlace");
    QTest::addColumn<int>("changedRows");
    QTest::newRow("the end moves on") << "end"
                                      << "" << -1 << true << 1;
    QTest::newRow("marked invoiced, listed either way") << "invoiced"
                                                        << "" << -1 << true << 1;
    QTest::newRow("an unlisted row stays out") << "end"
                                               << "one" << -1 << true << 0;
    QTest::newRow("a new start may reorder") << "start"
                                             << "" << -1 << false << 0;
    QTest::newRow("leaves the range") << "out"
                                      << "" << -1 << false << 0;
    QTest::newRow("leaves the invoiced filter") << "invoiced"
                                                << "" << int(ReportQuery::OnlyNotInvoiced) << false << 0;
    QTest::newRow("enters the search") << "text"
                                       << "one" << -1 << false << 0;
}

void TestReportQuery::updatesRefreshTheirRowsInPlace()
{
    QFETCH(QString, change);
    QFETCH(QString, search);
    QFETCH(int, invoicedFilter);
    QFETCH(bool, inPlace);
    QFETCH(int, changedRows);
    add(QStringLiteral("@Acme one"), local(QStringLiteral("2024-03-12 09:00")),
        local(QStringLiteral("2024-03-12 10:00")));
    const QString two = add(
        QStringLiteral("two"), local(QStringLiteral("2024-03-12 11:00")), local(QStringLiteral("2024-03-12 11:30")));
    add(QStringLiteral("three"), local(QStringLiteral("2024-03-11 08:00")), local(QStringLiteral("2024-03-11 09:00")));
    ReportQuery::Filter filter;
    filter.range = { local(QStringLiteral("2024-03-11 00:00")), local(QStringLiteral("2024-03-18 00:00")) };
    filter.searchText = search;
    if (invoicedFilter >= 0)
        filter.filterStatus = invoicedFilter;
    const ActivityQuery query = ReportQuery::activityQuery(filter);
    ReportTableModel model(*m_store);
    QAbstractItemModelTester tester(&model);
    QVERIFY(model.load(query));

    auto context = m_store->newContext();
    ActivityPtr activity = *context->activityWithUid(two);
    if (change == u"end")
        activity->setTimeTo(local(QStringLiteral("2024-03-12 12:45")));
    else if (change == u"invoiced")
        activity->setIsInvoiced(true);
    else if (change == u"start")
        activity->setTimeFrom(local(QStringLiteral("2024-03-12 08:00")));
    else if (change == u"text")
        activity->setText(QStringLiteral("two and one"));
    else {
        activity->setTimeFrom(local(QStringLiteral("2024-03-05 11:00")));
        activity->setTimeTo(local(QStringLiteral("2024-03-05 12:00")));
    }
    QVERIFY(context->save());

    QSignalSpy reset(&model, &QAbstractItemModel::modelReset);
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    const auto refreshed = model.refreshRecords({ two });
    QVERIFY(refreshed);
    QCOMPARE(*refreshed, inPlace);
    QCOMPARE(reset.count(), 0);
    QCOMPARE(changed.count(), changedRows);
    if (!inPlace)
        return;
    // In place, the model holds what a fresh read lists.
    ReportTableModel fresh(*m_store);
    QVERIFY(fresh.load(query));
    QCOMPARE(model.rowCount(), fresh.rowCount());
    for (int row = 0; row < fresh.rowCount(); ++row) {
        QCOMPARE(model.record(row).uid, fresh.record(row).uid);
        QCOMPARE(model.record(row).timeTo, fresh.record(row).timeTo);
        QCOMPARE(model.record(row).isInvoiced, fresh.record(row).isInvoiced);
    }
    QCOMPARE(model.totalSeconds(), fresh.totalSeconds());
    QCOMPARE(model.invoicedCount(), fresh.invoicedCount());
}

void TestReportQuery::totalsLabel_data()
{
    QTest::addColumn<int>("format");
    QTest::addColumn<bool>("computed");
    QTest::addColumn<int>("selectedRows");
    QTest::addColumn<QString>("expected");
    QTest::newRow("before the first computation") << 0 << false << 0 << "Total: -";
    QTest::newRow("nothing selected") << 0 << true << 0 << "Total: 01:12:45";
    QTest::newRow("one selected shows only the whole") << 0 << true << 1 << "Total: 01:12:45";
    QTest::newRow("two selected, selected first") << 0 << true << 2 << "Total: 00:30:00 / 01:12:45";
    QTest::newRow("minutes") << 1 << true << 2 << "Total: 30 / 73";
    QTest::newRow("decimal hours") << 2 << true << 0 << "Total: 1.2125";
}

void TestReportQuery::totalsLabel()
{
    QFETCH(int, format);
    QFETCH(bool, computed);
    QFETCH(int, selectedRows);
    QFETCH(QString, expected);
    const BVDurationTransformer transformer(format);
    const std::optional<double> total = computed ? std::optional(4365.0) : std::nullopt;
    QCOMPARE(ReportTotals::labelText(total, ReportTotals::selectedTotal(selectedRows, 1800), transformer), expected);
}

void TestReportQuery::actionMenuItems_data()
{
    QTest::addColumn<int>("selected");
    QTest::addColumn<int>("selectedInvoiced");
    QTest::addColumn<int>("listed");
    QTest::addColumn<int>("listedInvoiced");
    QTest::addColumn<int>("tag");
    QTest::addColumn<bool>("enabled");
    QTest::addColumn<QString>("title");
    QTest::addColumn<int>("state");
    QTest::newRow("merge needs two") << 1 << 0 << 5 << 0 << 11 << false << "Merge (select at least 2 activities)" << 0;
    QTest::newRow("merge three") << 3 << 0 << 5 << 0 << 11 << true << "Merge 3 activities" << 0;
    QTest::newRow("nothing selected") << 0 << 0 << 5 << 0 << 1 << false << "Mark as invoiced (selected activity)" << 0;
    QTest::newRow("one invoiced") << 1 << 1 << 5 << 1 << 1 << true << "Is invoiced (selected activity)" << 2;
    QTest::newRow("one not invoiced") << 1 << 0 << 5 << 1 << 1 << true << "Mark as invoiced (selected activity)" << 0;
    QTest::newRow("three, one invoiced") << 3 << 1 << 5 << 1 << 1 << true << "Is Invoiced (selected activities)" << 1;
    QTest::newRow("three none") << 3 << 0 << 5 << 0 << 1 << true << "Mark as invoiced (selected activities)" << 0;
    QTest::newRow("all mixed") << 0 << 0 << 5 << 2 << 2 << true << "Is Invoiced (all activities)" << 1;
    QTest::newRow("all invoiced") << 0 << 0 << 5 << 5 << 2 << true << "Is Invoiced (all activities)" << 2;
    QTest::newRow("empty list") << 0 << 0 << 0 << 0 << 2 << false << "Mark as invoiced (all activities)" << 0;
    QTest::newRow("export selected") << 0 << 0 << 5 << 0 << 3 << false << "Export selected activities..." << 0;
    QTest::newRow("export all") << 0 << 0 << 5 << 0 << 4 << true << "Export all activities..." << 0;
    QTest::newRow("delete") << 2 << 0 << 5 << 0 << 10 << true << "Delete selected activities..." << 0;
}

void TestReportQuery::actionMenuItems()
{
    QFETCH(int, selected);
    QFETCH(int, selectedInvoiced);
    QFETCH(int, listed);
    QFETCH(int, listedInvoiced);
    QFETCH(int, tag);
    QFETCH(bool, enabled);
    QFETCH(QString, title);
    QFETCH(int, state);
    const auto items = ReportActionMenu::items({ selected, selectedInvoiced, listed, listedInvoiced });
    QCOMPARE(items.value(tag), (Item { enabled, title, Qt::CheckState(state) }));
}

void TestReportQuery::mixedInvoicedSelectionBecomesAllInvoiced()
{
    const QDateTime start = local(u"2024-03-13 08:00"_qs);
    const QStringList uids { add(u"a"_qs, start, start.addSecs(60), true), add(u"b"_qs, start, start.addSecs(60)),
        add(u"c"_qs, start, start.addSecs(60)) };
    ReportTableModel model(*m_store);
    QVERIFY(model.load(ReportQuery::activityQuery({})));
    const QList<int> rows { 0, 1, 2 };
    const auto clicked = [&] {
        const auto items = ReportActionMenu::items({ 3, model.invoicedCount(rows), 3, model.invoicedCount() });
        return items.value(ReportActionMenu::InvoicedSelected).state;
    };
    QCOMPARE(clicked(), Qt::PartiallyChecked);
    m_clock.set(local(u"2024-03-20 12:00"_qs));
    QCOMPARE(ActivityInvoicing(*m_store).setInvoiced(uids, ReportActionMenu::invoicedValueFor(clicked())), 2);
    model.invalidate();
    QVERIFY(model.load(ReportQuery::activityQuery({})));
    QCOMPARE(model.invoicedCount(), 3);
    // The changed ones carry a new modification time for sync; the one already invoiced is untouched.
    for (int row : rows)
        QCOMPARE(model.record(row).modifiedAt == m_clock.now().toMSecsSinceEpoch(), model.record(row).text != u"a"_qs);
    QCOMPARE(clicked(), Qt::Checked);
    QCOMPARE(ActivityInvoicing(*m_store).setInvoiced(uids, ReportActionMenu::invoicedValueFor(clicked())), 3);
    model.invalidate();
    QVERIFY(model.load(ReportQuery::activityQuery({})));
    QCOMPARE(model.invoicedCount(), 0);
}

void TestReportQuery::deletingSkipsTheRunningActivityAndLeavesRecords()
{
    const QDateTime start = local(u"2024-03-13 08:00"_qs);
    const QString a = add(u"a"_qs, start, start.addSecs(60));
    const QString running = add(u"running"_qs, start.addSecs(120), start.addSecs(180));
    const QString c = add(u"c"_qs, start.addSecs(240), start.addSecs(300));
    const QString kept = add(u"kept"_qs, start.addSecs(360), start.addSecs(420));
    m_clock.set(local(u"2024-03-14 09:00"_qs));

    const auto deleted = ActivityDeletion(*m_store).deleteActivities({ c, running, a, u"GONE"_qs }, running);
    QVERIFY(deleted);
    QCOMPARE(*deleted, (QStringList { c, a }));
    QCOMPARE(listedTexts(ReportQuery::activityQuery({})), (QStringList { u"kept"_qs, u"running"_qs }));
    auto context = m_store->newContext();
    const auto records = context->fetchDeletedActivities();
    QVERIFY(records);
    QStringList recorded;
    for (const DeletedActivityPtr &record : *records) {
        recorded.append(record->uid());
        QCOMPARE(record->deletedAt(), m_clock.now());
    }
    recorded.sort();
    QStringList expected { a, c };
    expected.sort();
    QCOMPARE(recorded, expected);
    QVERIFY(!recorded.contains(kept));
}

void TestReportQuery::rowRules_data()
{
    QTest::addColumn<QString>("rule");
    QTest::addColumn<QList<int>>("selected");
    QTest::addColumn<int>("argument");
    QTest::addColumn<QList<int>>("expected");
    using L = QList<int>;
    QTest::newRow("clicked outside the selection") << "action" << L { 1, 2 } << 5 << L { 5 };
    QTest::newRow("clicked inside the selection") << "action" << L { 4, 1 } << 4 << L { 1, 4 };
    QTest::newRow("no clicked row") << "action" << L { 3, 0 } << -1 << L { 0, 3 };
    QTest::newRow("delete: row above") << "delete" << L { 3 } << 10 << L { 2 };
    QTest::newRow("delete: first row") << "delete" << L { 0 } << 10 << L { 0 };
    QTest::newRow("delete: past the end") << "delete" << L { 8 } << 5 << L { 4 };
    QTest::newRow("delete: nothing left") << "delete" << L { 0 } << 0 << L {};
    QTest::newRow("j moves down") << "next" << L { 2 } << 5 << L { 3 };
    QTest::newRow("j on the last row keeps it") << "next" << L { 4 } << 5 << L { 4 };
    QTest::newRow("j with two selected") << "next" << L { 1, 2 } << 5 << L {};
    QTest::newRow("k moves up") << "previous" << L { 2 } << 5 << L { 1 };
    QTest::newRow("k on the first row") << "previous" << L { 0 } << 5 << L {};
}

void TestReportQuery::rowRules()
{
    QFETCH(QString, rule);
    QFETCH(QList<int>, selected);
    QFETCH(int, argument);
    QFETCH(QList<int>, expected);
    const auto list = [](std::optional<int> row) { return row ? QList<int> { *row } : QList<int> {}; };
    if (rule == u"action")
        QCOMPARE(ReportSelection::actionRows(selected, argument), expected);
    else if (rule == u"delete")
        QCOMPARE(list(ReportSelection::rowAfterDeletion(selected.first(), argument)), expected);
    else if (rule == u"next")
        QCOMPARE(list(ReportSelection::nextRow(selected, argument)), expected);
    else
        QCOMPARE(list(ReportSelection::previousRow(selected)), expected);
}

void TestReportQuery::copyTextHasEveryColumnInOrder()
{
    const QDateTime start = local(u"2024-03-13 08:00"_qs);
    add(u"@Acme #b #a fix <bug>"_qs, start, start.addSecs(4365));
    add(u"plain"_qs, start.addSecs(-7200), start.addSecs(-7140));
    ReportTableModel model(*m_store);
    QVERIFY(model.load(ReportQuery::activityQuery({})));
    model.setDurationFormat(1);
    const QList<int> order { ReportTableModel::TextColumn, ReportTableModel::DurationColumn,
        ReportTableModel::ProjectColumn, ReportTableModel::TasksColumn, ReportTableModel::FromColumn };
    const QString from = Activity::dateStr(start);
    QCOMPARE(model.plainText({ 0, 1 }, order),
        u"@Acme #b #a fix <bug>\t73\tAcme\ta, b\t"_qs + from + u"\t\nplain\t1\t\t\t"_qs
            + Activity::dateStr(start.addSecs(-7200)) + u"\t\n"_qs);
    QCOMPARE(model.htmlText({ 0 }, { ReportTableModel::TextColumn, ReportTableModel::ProjectColumn }),
        u"<table><tr><td>@Acme #b #a fix &lt;bug&gt;</td><td>Acme</td></tr></table>"_qs);
    QCOMPARE(model.data(model.index(0, ReportTableModel::DurationColumn), Qt::TextAlignmentRole).toInt(),
        int(Qt::AlignRight | Qt::AlignVCenter));
}

void TestReportQuery::sidebarWidthOnOpening_data()
{
    QTest::addColumn<double>("saved");
    QTest::addColumn<int>("expected");
    QTest::newRow("kept") << 220.0 << 220;
    QTest::newRow("raised to the minimum") << 40.0 << 150;
    QTest::newRow("limited by the table's minimum") << 900.0 << 1000 - 400 - 1;
}

void TestReportQuery::sidebarWidthOnOpening()
{
    QFETCH(double, saved);
    QFETCH(int, expected);
    QCOMPARE(ReportLayout::sidebarWidth(saved, 150, 1000, 400), expected);
}

void TestReportQuery::columnsLeaveTheTextItsRoom_data()
{
    QTest::addColumn<int>("available");
    QTest::addColumn<QList<int>>("expected");
    // Wished 150, 150, 80, 120, 120 (620); minimum 100, 100, 60, 60, 60 (380).
    QTest::newRow("room enough") << 700 << QList<int> { 150, 150, 80, 120, 120 };
    QTest::newRow("exactly") << 620 << QList<int> { 150, 150, 80, 120, 120 };
    QTest::newRow("shrunk in proportion, adding up") << 500 << QList<int> { 125, 125, 70, 90, 90 };
    QTest::newRow("odd amounts still add up") << 619 << QList<int> { 150, 150, 80, 120, 119 };
    QTest::newRow("never below the minimum") << 100 << QList<int> { 100, 100, 60, 60, 60 };
}

void TestReportQuery::columnsLeaveTheTextItsRoom()
{
    QFETCH(int, available);
    QFETCH(QList<int>, expected);
    QCOMPARE(
        ReportLayout::fittedColumnWidths({ 150, 150, 80, 120, 120 }, { 100, 100, 60, 60, 60 }, available), expected);
}

QTEST_GUILESS_MAIN(TestReportQuery)
#include "testreportquery.moc"
