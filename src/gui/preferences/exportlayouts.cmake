# The Export page: the CSV and XML layout editors with their preview.
target_sources(brimvale-gui PRIVATE
    exportlayoutspage.cpp exportlayoutspage.h
    exporttokenrow.cpp exporttokenrow.h
    tokenflowlayout.cpp tokenflowlayout.h)
