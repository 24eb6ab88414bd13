#pragma once

#include <expected>
#include <memory>
#include <optional>

#include <QCommandLineParser>
#include <QDateTime>
#include <QString>
#include <QStringList>

#include "base/bverror.h"
#include "cli/clienvironment.h"

class Store;

// One "brimvale COMMAND ..." command. Each command parses its own options, prints one clear line on
// stderr for anything wrong, and returns a CliExit status.
class CliCommand
{
public:
    virtual ~CliCommand() = default;

    virtual QString name() const = 0;
    // One line for the overview of all commands.
    virtual QString summary() const = 0;
    // `arguments` are the words after the command's name.
    virtual int run(const QStringList &arguments, CliEnvironment &environment) = 0;

protected:
    // Parses `arguments` with the options set up on `parser` (plus --help). Returns the exit status to
    // end with when parsing failed or help was printed, nothing when the command should go on.
    std::optional<int> parse(QCommandLineParser &parser, const QStringList &arguments, CliEnvironment &environment);
    enum class Access { Read, Write };
    // Opens the store; on failure prints its error text and gives nothing (exit with StoreUnavailable). A
    // command that writes is refused a read-only store the same way, before it changes anything.
    std::unique_ptr<Store> openStore(CliEnvironment &environment, Access access = Access::Read);
    // Prints `message` as the one error line and returns Failure.
    static int fail(CliEnvironment &environment, const QString &message);
    // Prints why a save failed and returns StoreUnavailable when the store cannot take writes at all (full,
    // read-only), Failure when it refused this change.
    static int saveFailed(CliEnvironment &environment, const BvError &error);
};
