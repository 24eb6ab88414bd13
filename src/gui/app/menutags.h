#pragma once

// The tags of the app's menu items (kept in QAction::data), by which the controller and tests find them.
namespace MenuTags {
inline constexpr int ActivityMenu = 1;
inline constexpr int StartTrack = 1001;
inline constexpr int RecentActivities = 1002;
inline constexpr int UpdateTrack = 1003;
inline constexpr int StopTrack = 1004;

// The tray's status menu.
inline constexpr int StatusTrackRecent = 1;
inline constexpr int StatusStopTracking = 2;
inline constexpr int StatusSync = 2001;
inline constexpr int StatusActivities = 2002;
inline constexpr int StatusReport = 2003;
inline constexpr int StatusImportActivities = 2004;

// The report window: opened from the application menu (Ctrl+R), its Window-menu item enabled while it is
// the active window, and the import window.
inline constexpr int ShowReport = 3001;
inline constexpr int ImportActivities = 3002;
inline constexpr int WindowReport = 3003;
} // namespace MenuTags
