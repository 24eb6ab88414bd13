#pragma once

#include <memory>

#include "model/sidebaritem.h"

// A task: one "#" word of an activity's text.
class Task : public SidebarItem
{
protected:
    bool isTask() const override { return true; }
};

using TaskPtr = std::shared_ptr<Task>;
