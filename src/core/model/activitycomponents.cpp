#include "model/activitycomponents.h"

#include <utility>

ActivityComponents::ActivityComponents(QString text, QString project, QStringList tasks)
    : m_text(std::move(text))
    , m_project(std::move(project))
    , m_tasks(std::move(tasks))
{ }

ActivityComponents ActivityComponents::componentsWithText(QString text, QString project, QStringList andTasks)
{
    return ActivityComponents(std::move(text), std::move(project), std::move(andTasks));
}

bool operator==(const ActivityComponents &a, const ActivityComponents &b)
{
    // QString's own == holds a null string equal to an empty one, but a line naming the project "" is not a line
    // naming no project.
    return a.m_text.isNull() == b.m_text.isNull() && a.m_project.isNull() == b.m_project.isNull()
        && a.m_text == b.m_text && a.m_project == b.m_project && a.m_tasks == b.m_tasks;
}
