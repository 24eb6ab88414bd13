target_sources(brimvale-gui PRIVATE
    bvshortcutrecorder.cpp bvshortcutrecorder.h)
