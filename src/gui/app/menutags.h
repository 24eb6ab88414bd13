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
} // namespace MenuTags
