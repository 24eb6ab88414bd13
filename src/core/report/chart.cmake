target_sources(brimvale-core PRIVATE
    reportchartdata.cpp reportchartdata.h
)
