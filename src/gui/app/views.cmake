# The main window's reusable views, the tray item and the start-time sheet, with their images.
target_sources(brimvale-gui PRIVATE
    ${CMAKE_CURRENT_LIST_DIR}/activitytextview.cpp ${CMAKE_CURRENT_LIST_DIR}/activitytextview.h
    ${CMAKE_CURRENT_LIST_DIR}/bvmainwindowstatusbarview.cpp ${CMAKE_CURRENT_LIST_DIR}/bvmainwindowstatusbarview.h
    ${CMAKE_CURRENT_LIST_DIR}/bvstatusbaritem.cpp ${CMAKE_CURRENT_LIST_DIR}/bvstatusbaritem.h
    ${CMAKE_CURRENT_LIST_DIR}/bvtaggedtextfieldcell.cpp ${CMAKE_CURRENT_LIST_DIR}/bvtaggedtextfieldcell.h
    ${CMAKE_CURRENT_LIST_DIR}/editactivitystarttimewindowcontroller.cpp
    ${CMAKE_CURRENT_LIST_DIR}/editactivitystarttimewindowcontroller.h)

# A static library's resource initialiser would be dropped by the linker, so the images go in through
# qt_add_resources on the target, which links them into every executable that uses brimvale-gui.
qt_add_resources(brimvale-gui brimvale-views-icons
    PREFIX /icons
    BASE ${CMAKE_CURRENT_LIST_DIR}/../resources
    FILES
        ${CMAKE_CURRENT_LIST_DIR}/../resources/brimvale.svg
        ${CMAKE_CURRENT_LIST_DIR}/../resources/statusbar-icon.svg
        ${CMAKE_CURRENT_LIST_DIR}/../resources/status_edit_start_date.svg
        ${CMAKE_CURRENT_LIST_DIR}/../resources/DropboxSyncProgress.svg
        ${CMAKE_CURRENT_LIST_DIR}/../resources/DropboxSyncSuccess.svg
        ${CMAKE_CURRENT_LIST_DIR}/../resources/DropboxSyncError.svg)

# Desktop integration: the launcher entry (also the handler of brimvaleapp: links) and the application icon
# in every size panels and menus ask the icon theme for.
set(BRIMVALE_RESOURCES ${CMAKE_CURRENT_LIST_DIR}/../resources)
include(GNUInstallDirs)
install(FILES ${BRIMVALE_RESOURCES}/brimvale.desktop
    DESTINATION ${CMAKE_INSTALL_DATADIR}/applications COMPONENT desktop)
install(FILES ${BRIMVALE_RESOURCES}/brimvale.svg
    DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps COMPONENT desktop)
foreach(size 16 22 24 32 48 64 128 256)
    install(FILES ${BRIMVALE_RESOURCES}/appicon/brimvale-${size}.png
        DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/${size}x${size}/apps RENAME brimvale.png COMPONENT desktop)
endforeach()
