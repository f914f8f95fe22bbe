# What a package holds beside the program.
install(TARGETS korvale-crash-reporter RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
