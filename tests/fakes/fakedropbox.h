#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

// The local Dropbox server (fakedropbox.py) as a test sees it: started on free loopback ports, stopped with
// the object, and driven through its control routes (files written or deleted by "another machine", faults,
// token states, the log of every request it served).
class FakeDropbox
{
public:
    // `tokens` are access tokens valid from the start.
    explicit FakeDropbox(const QStringList &tokens = { QStringLiteral("test-token") });
    ~FakeDropbox();
    FakeDropbox(const FakeDropbox &) = delete;
    FakeDropbox &operator=(const FakeDropbox &) = delete;

    // Starts the server; false (with the reason in errorString()) when it did not come up.
    bool start();
    QString errorString() const { return m_error; }

    QString apiUrl() const;
    QString contentUrl() const;
    // `base` with the agent's two endpoint variables pointing here.
    QProcessEnvironment agentEnvironment(QProcessEnvironment base = QProcessEnvironment::systemEnvironment()) const;

    QJsonObject writeFile(const QString &path, const QByteArray &content);
    void deleteFile(const QString &path);
    // Every cursor handed out so far answers "reset" from now on.
    void resetCursors();
    // One of the server's faults, see fakedropbox.py: {"route", "kind", "count", "status", "retry_after", ...}.
    void injectFault(const QJsonObject &fault);
    void setToken(const QString &token, const QString &state);
    void setPageSize(int limit);
    // The server's files by lower-case path: {"rev", "content", "content_base64", "path_display", "id"}.
    QJsonObject files();
    // Every API request so far: {"host", "route", "headers" (lower-case names), "body", "body_size", "status"}.
    QJsonArray requests();
    QJsonArray requests(const QString &route);
    void clearRequests();

    // POST /_control/NAME with `argument`; the JSON answer.
    QJsonValue control(const QString &name, const QJsonObject &argument = {});
    QJsonValue read(const QString &name);

private:
    QByteArray http(const QByteArray &verb, const QString &name, const QByteArray &body);

    QStringList m_tokens;
    QProcess m_process;
    int m_apiPort = 0;
    int m_contentPort = 0;
    QString m_error;
};
