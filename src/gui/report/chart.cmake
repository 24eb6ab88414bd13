target_sources(brimvale-gui PRIVATE
    reportchartview.cpp reportchartview.h
)
