#pragma once

// Where the running app answers on the session bus. The app holds the service name for as long as it runs
// (one app per user session); the command line and a second `brimvale` call the interface at the object.
namespace BrimvaleDBus {
inline constexpr auto ServiceName = "com.brimvaleapp.Brimvale";
inline constexpr auto ObjectPath = "/com/brimvaleapp/Brimvale";
inline constexpr auto InterfaceName = "com.brimvaleapp.Brimvale1";
} // namespace BrimvaleDBus
