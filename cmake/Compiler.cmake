# What every target of the project is compiled with: strict Qt, warnings, and the sanitizers where asked for.
add_library(korvale_options INTERFACE)

target_compile_definitions(korvale_options INTERFACE
    QT_NO_CAST_FROM_ASCII
    QT_NO_CAST_TO_ASCII
    QT_NO_URL_CAST_FROM_STRING
    QT_NO_FOREACH
    QT_NO_KEYWORDS
    QT_NO_NARROWING_CONVERSIONS_IN_CONNECT
    QT_DISABLE_DEPRECATED_BEFORE=0x060400)

target_compile_options(korvale_options INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wconversion -Wsign-conversion
    -Wold-style-cast -Wcast-qual -Wformat=2 -Wnull-dereference -Wundef)
if(KORVALE_WARNINGS_AS_ERRORS)
    target_compile_options(korvale_options INTERFACE -Werror)
endif()

if(KORVALE_SANITIZERS)
    target_compile_options(korvale_options INTERFACE
        -fsanitize=${KORVALE_SANITIZERS} -fno-sanitize-recover=all -fno-omit-frame-pointer -O1)
    target_link_options(korvale_options INTERFACE -fsanitize=${KORVALE_SANITIZERS})
endif()
