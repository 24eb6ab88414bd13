#pragma once

// How the recent-activities menu is filled: at most `count` distinct texts, newest first or in reverse
// text order, optionally leaving invoiced activities out. The app passes the user's preferences.
struct RecentItemsOptions
{
    int count = 10;
    bool orderedByDate = true;
    bool excludeInvoiced = false;
};
