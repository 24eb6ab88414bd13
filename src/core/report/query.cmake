target_sources(brimvale-core PRIVATE
    reportquery.cpp reportquery.h
    reporttotals.cpp reporttotals.h
    reportactionmenu.cpp reportactionmenu.h
    reportselection.cpp reportselection.h
    activitydeletion.cpp activitydeletion.h
    activityinvoicing.cpp activityinvoicing.h
    reporttablemodel.cpp reporttablemodel.h
    reportlayout.cpp reportlayout.h
    bvfileexportformatcollection.cpp bvfileexportformatcollection.h
    # The date picker's rules (its widgets are in gui/report).
    bvdatepickerrules.cpp bvdatepickerrules.h)
