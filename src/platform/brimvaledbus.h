#pragma once

// Where the running app answers on the session bus. The app holds the service name for as long as it runs
// (one app per user session); the command line and a second `brimvale` call the interface at the object.
namespace BrimvaleDBus {
inline constexpr auto ServiceName = "com.brimvaleapp.Brimvale";
inline constexpr auto ObjectPath = "/com/brimvaleapp/Brimvale";
inline constexpr auto InterfaceName = "com.brimvaleapp.Brimvale1";
} // namespace BrimvaleDBus

// The tabs of the preferences window as ShowPreferences(i) and `brimvale preferences NAME` name them. The
// numbers are fixed, whatever order the window shows the tabs in: 2 has always meant sync.
namespace PreferencesTab {
inline constexpr int General = 0;
inline constexpr int Export = 1;
inline constexpr int Sync = 2;
inline constexpr int Attention = 3;
} // namespace PreferencesTab
