target_sources(brimvale-gui PRIVATE
    bvtableview.cpp bvtableview.h
    reportwindowcontroller.cpp reportwindowcontroller.h
    reportwindows.cpp reportwindows.h)
