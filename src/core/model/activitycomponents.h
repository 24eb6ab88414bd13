#pragma once

#include <QString>
#include <QStringList>

// What one activity line names: the line itself, its project and its tasks, as ActivityParser found them.
// Immutable value. Absence is a null QString (QString::isNull()); a name that is present but empty is an empty,
// non-null QString. The two differ: "@... rest" names the project "" while "rest" names no project at all.
class ActivityComponents
{
public:
    // No text, no project, no tasks.
    ActivityComponents() = default;

    // The record of `text` (null when no text was handed over), `project` (the name without "@", null when the
    // line names none) and `andTasks` (the names without "#", in order of first appearance, already free of
    // case-insensitive duplicates). Takes the values as given; nothing is checked or normalised.
    static ActivityComponents componentsWithText(QString text, QString project, QStringList andTasks);

    // The line exactly as handed to the parser; null when there was none.
    const QString &text() const { return m_text; }
    // The project name without its "@"; null when the line names no project, empty when it names "".
    const QString &project() const { return m_project; }
    // The task names without their "#"; empty, never absent, when the line names none.
    const QStringList &tasks() const { return m_tasks; }

    // Equal when text, project and tasks are equal, an absent text or project counting as unequal to an empty one.
    friend bool operator==(const ActivityComponents &a, const ActivityComponents &b);

private:
    ActivityComponents(QString text, QString project, QStringList tasks);

    QString m_text;
    QString m_project;
    QStringList m_tasks;
};
