# What every target of the project is compiled with: strict Qt, warnings, and hardening or the sanitizers where asked for.
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

include(CheckPIESupported)
check_pie_supported()
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

if(KORVALE_HARDENING)
    # A distribution's own level of fortification may stand in the flags already; the compiler warns of two levels.
    target_compile_options(korvale_options INTERFACE
        -fstack-protector-strong -fstack-clash-protection -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3)
    if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|i[3-6]86)$")
        target_compile_options(korvale_options INTERFACE -fcf-protection=full)
    elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$")
        target_compile_options(korvale_options INTERFACE -mbranch-protection=standard)
    endif()
    if(NOT APPLE)
        target_link_options(korvale_options INTERFACE -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
    endif()
endif()

if(KORVALE_SANITIZERS)
    # Of the folder, so that a folder in it can take some back.
    add_compile_options(-fsanitize=${KORVALE_SANITIZERS} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${KORVALE_SANITIZERS})
endif()
