#pragma once

#include <memory>

#include "model/sidebaritem.h"

// A project: the "@" word of an activity's text.
class Project : public SidebarItem
{
protected:
    bool isTask() const override { return false; }
};

using ProjectPtr = std::shared_ptr<Project>;
