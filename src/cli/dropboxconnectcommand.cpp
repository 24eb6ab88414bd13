#include "cli/dropboxconnectcommand.h"

#include <unistd.h>

#include <QEventLoop>
#include <QProcess>
#include <QSocketNotifier>

#include "platform/dropboxconnectflow.h"
#include "sync/bvdropboxsettings.h"
#include "sync/bvdropboxsyncbackend.h"

int DropboxConnectCommand::run(const QStringList &arguments, CliEnvironment &environment)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Connects this computer with your Dropbox account: opens Dropbox's page in the browser, where you allow "
        "Brimvale; the browser then returns to Brimvale."));
    const QCommandLineOption paste(QStringLiteral("paste"),
        QStringLiteral("Dropbox shows a code to paste here instead of returning to this computer (a browser "
                       "elsewhere)."));
    const QCommandLineOption noBrowser(
        QStringLiteral("no-browser"), QStringLiteral("Only print the page's address; do not open it."));
    parser.addOption(paste);
    parser.addOption(noBrowser);
    if (const std::optional<int> done = parse(parser, arguments, environment))
        return *done;
    if (!parser.positionalArguments().isEmpty())
        return fail(environment, QStringLiteral("dropbox connect takes no arguments."));
    const BVDropboxServices *services = environment.dropbox ? environment.dropbox() : nullptr;
    if (!services)
        return fail(environment, QStringLiteral("Dropbox cannot be reached: there is no session bus."));
    BVDropboxSyncBackend account(*services);
    if (account.isDropboxConnected())
        return fail(environment,
            QStringLiteral("Dropbox is already connected (%1). Disconnect first: brimvale dropbox disconnect")
                .arg(services->settings->dropboxAccountName()));

    DropboxConnectFlow flow(account);
    const QUrl page = flow.start(
        parser.isSet(paste) ? DropboxConnectFlow::Return::PastedCode : DropboxConnectFlow::Return::Loopback,
        DropboxConnectFlow::Return::PastedCode);
    const bool pasted = flow.returnsTo() == DropboxConnectFlow::Return::PastedCode;
    environment.out << QStringLiteral(
        "Open this page in a browser and allow Brimvale to use its Dropbox folder:\n  %1\n")
                           .arg(page.toString(QUrl::FullyEncoded));
    environment.out << (pasted ? QStringLiteral("Then paste the code Dropbox shows, and press Enter: ")
                               : QStringLiteral("Waiting for the browser to return here (or paste the address it "
                                                "ended on, and press Enter)..."))
                    << Qt::endl;
    if (!parser.isSet(noBrowser))
        QProcess::startDetached(QStringLiteral("xdg-open"), { page.toString(QUrl::FullyEncoded) });

    QEventLoop loop;
    QString failure;
    QObject::connect(&flow, &DropboxConnectFlow::refused, &loop, [&](const QString &reason) {
        failure = QStringLiteral("Dropbox did not allow access (%1).").arg(reason);
        loop.quit();
    });
    QObject::connect(&flow, &DropboxConnectFlow::exchanged, &loop, [&](const QString &error) {
        failure = error;
        loop.quit();
    });

    QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    QByteArray typed;
    QObject::connect(&input, &QSocketNotifier::activated, &loop, [&] {
        char buffer[4096];
        const ssize_t n = ::read(STDIN_FILENO, buffer, sizeof buffer);
        if (n <= 0) {
            input.setEnabled(false);
            if (pasted && flow.state() != DropboxConnectFlow::State::Exchanging) {
                failure = QStringLiteral("No code was pasted.");
                loop.quit();
            }
            return;
        }
        typed.append(buffer, n);
        const qsizetype end = typed.indexOf('\n');
        if (end < 0)
            return;
        const QString line = QString::fromUtf8(typed.left(end)).trimmed();
        typed.remove(0, end + 1);
        if (line.isEmpty())
            return;
        if (pasted)
            flow.finishWithCode(line);
        else
            flow.finishWithRedirect(QUrl(line));
    });
    loop.exec();

    if (!failure.isEmpty())
        return fail(environment, QStringLiteral("Dropbox was not connected: %1").arg(failure));
    environment.out << QStringLiteral("Connected with Dropbox as %1.")
                           .arg(services->settings->dropboxAccountName().isEmpty()
                                   ? services->settings->dropboxAccountID()
                                   : services->settings->dropboxAccountName())
                    << Qt::endl;
    return CliExit::Success;
}
