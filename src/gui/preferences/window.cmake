target_sources(brimvale-gui PRIVATE
    attentionpreferencespage.cpp attentionpreferencespage.h
    generalpreferencespage.cpp generalpreferencespage.h
    preferencescombobox.cpp preferencescombobox.h
    preferenceswindowcontroller.cpp preferenceswindowcontroller.h
    syncpreferencespage.cpp syncpreferencespage.h)
