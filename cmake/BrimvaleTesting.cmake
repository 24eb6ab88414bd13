# One call registers one QtTest suite:
#   bv_add_test(NAME testfoo SOURCES a.cpp LIBS brimvale-core LABELS core [TZ Europe/Berlin] [LOCALE en_US.UTF-8]
#               [BUS] [SYSTEM_BUS] [WAYLAND] [E2E])
# Every test runs through tests/support/isolated-env.sh, which gives it a fresh HOME and XDG folders, so no
# test can touch the user's real data. BUS adds a private session bus; SYSTEM_BUS a private stand-in for the
# system bus as well; WAYLAND a headless Wayland compositor where one is installed; E2E adds Xvfb and a
# session bus.
set(BV_ISOLATE ${CMAKE_SOURCE_DIR}/tests/support/isolated-env.sh)
set(BV_E2E_WRAPPER ${CMAKE_SOURCE_DIR}/tests/support/run-e2e.sh)
set(BV_SYSTEM_BUS ${CMAKE_SOURCE_DIR}/tests/support/with-system-bus.sh)
set(BV_WAYLAND ${CMAKE_SOURCE_DIR}/tests/support/with-wayland-compositor.sh)

function(bv_add_test)
    cmake_parse_arguments(T "BUS;SYSTEM_BUS;WAYLAND;E2E" "NAME;TZ;LOCALE" "SOURCES;LIBS;LABELS" ${ARGN})
    add_executable(${T_NAME} ${T_SOURCES})
    target_link_libraries(${T_NAME} PRIVATE brimvale-flags brimvale-test-support Qt6::Test ${T_LIBS})
    set(launcher ${BV_ISOLATE})
    if(T_E2E AND T_SYSTEM_BUS)
        set(launcher ${BV_E2E_WRAPPER} ${BV_SYSTEM_BUS})
    elseif(T_E2E)
        set(launcher ${BV_E2E_WRAPPER})
    elseif(T_SYSTEM_BUS)
        set(launcher ${BV_ISOLATE} dbus-run-session -- ${BV_SYSTEM_BUS})
    elseif(T_WAYLAND)
        set(launcher ${BV_ISOLATE} ${BV_WAYLAND})
    elseif(T_BUS)
        set(launcher ${BV_ISOLATE} dbus-run-session --)
    endif()
    add_test(NAME ${T_NAME} COMMAND ${launcher} $<TARGET_FILE:${T_NAME}>)
    set(env "QT_QPA_PLATFORM=offscreen" "BRIMVALE_SOURCE_DIR=${CMAKE_SOURCE_DIR}")
    if(T_TZ)
        list(APPEND env "TZ=${T_TZ}")
    endif()
    if(T_LOCALE)
        list(APPEND env "LANG=${T_LOCALE}" "LC_ALL=${T_LOCALE}")
    endif()
    # A hung end-to-end test (a window that never maps, a process that never answers) fails in minutes,
    # not at the watchdog of the whole run.
    set(timeout 600)
    if(T_E2E)
        set(timeout 240)
    endif()
    set_tests_properties(${T_NAME} PROPERTIES LABELS "${T_LABELS}" ENVIRONMENT "${env}" TIMEOUT ${timeout})
endfunction()
