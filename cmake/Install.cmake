# What a package holds: the program, what makes it known to a desktop, and its manual page.
install(TARGETS korvale-crash-reporter RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} BUNDLE DESTINATION .)

set(application_id com.korvale.crashreporter)
set(generated ${CMAKE_BINARY_DIR}/resources)
foreach(file IN ITEMS ${application_id}.metainfo.xml korvale-crash-reporter.1 Info.plist)
    configure_file(resources/${file}.in ${generated}/${file} @ONLY)
endforeach()
install(FILES resources/${application_id}.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
install(FILES ${generated}/${application_id}.metainfo.xml DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)
install(FILES resources/${application_id}.xml DESTINATION ${CMAKE_INSTALL_DATADIR}/mime/packages)
install(FILES ${generated}/korvale-crash-reporter.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)

# The icon theme specification looks an icon up by the folder of its size and by the application's id. The bitmaps are
# rendered from the drawings, of which the two smallest sizes have their own: rsvg-convert -w SIZE -h SIZE DRAWING -o BITMAP.
set(icon_theme ${CMAKE_INSTALL_DATADIR}/icons/hicolor)
install(FILES resources/icons/${application_id}.svg DESTINATION ${icon_theme}/scalable/apps)
install(FILES resources/icons/${application_id}-symbolic.svg DESTINATION ${icon_theme}/symbolic/apps)
foreach(side IN ITEMS 16 24 32 48 64 128 256)
    install(FILES resources/icons/${side}.png
        DESTINATION ${icon_theme}/${side}x${side}/apps
        RENAME ${application_id}.png)
endforeach()
