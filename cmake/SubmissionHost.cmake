# The host that reports are posted to, checked here so that a mistake ends the configuration and not a user's report.
set(SUBMISSION_HOST "localhost" CACHE STRING
    "Host of the submission endpoint: a bare name or address, without scheme, port or path")

# A name of letters, digits, hyphens and dots, in labels of at most 63 characters (RFC 1123 section 2.1). One that ends in
# a number, decimal or hexadecimal, would be taken for an address (inet_aton(3); URL Standard, "ends in a number").
function(check_host_name host result)
    set(${result} FALSE PARENT_SCOPE)
    string(REGEX REPLACE "[.]$" "" name "${host}")
    string(LENGTH "${name}" length)
    if(NOT name MATCHES "^[A-Za-z0-9.-]+$" OR length GREATER 253 OR name MATCHES "[.][.]|(^|[.])([0-9]+|0[Xx][0-9A-Fa-f]*)$")
        return()
    endif()
    string(REPLACE "." ";" labels "${name}")
    foreach(label IN LISTS labels)
        string(LENGTH "${label}" length)
        if(NOT label MATCHES "^[A-Za-z0-9]([A-Za-z0-9-]*[A-Za-z0-9])?$" OR length GREATER 63)
            return()
        endif()
    endforeach()
    set(${result} TRUE PARENT_SCOPE)
endfunction()

# Four numbers up to 255 (RFC 3986 section 3.2.2).
function(check_ipv4_address host result)
    set(octet "(25[0-5]|2[0-4][0-9]|1[0-9][0-9]|[1-9]?[0-9])")
    set(${result} FALSE PARENT_SCOPE)
    if(host MATCHES "^${octet}[.]${octet}[.]${octet}[.]${octet}$")
        set(${result} TRUE PARENT_SCOPE)
    endif()
endfunction()

# Eight groups of up to four hexadecimal digits, without brackets; "::" may stand once for groups of zeros (RFC 4291
# section 2.2).
function(check_ipv6_address host result)
    set(${result} FALSE PARENT_SCOPE)
    set(group "[0-9A-Fa-f][0-9A-Fa-f]?[0-9A-Fa-f]?[0-9A-Fa-f]?")
    set(groups "${group}(:${group})*")
    if(NOT host MATCHES "^(${groups})?(::)?(${groups})?$")
        return()
    endif()
    string(REGEX MATCHALL "[0-9A-Fa-f]+" found "${host}")
    list(LENGTH found count)
    if((host MATCHES "::" AND count LESS 8) OR (NOT host MATCHES "::" AND count EQUAL 8))
        set(${result} TRUE PARENT_SCOPE)
    endif()
endfunction()

# A name or an address that never leaves the machine (RFC 6761 section 6.3, RFC 5735 section 3, RFC 4291 section 2.5), an
# IPv4 one also where it is written as an IPv6 one, and the names that systems give it in their list of hosts.
function(check_own_machine host result)
    set(${result} FALSE PARENT_SCOPE)
    string(TOLOWER "${host}" host)
    set(mapped_ipv4 "^[0:]*:ffff:(7f[0-9a-f][0-9a-f]|0*[0-9a-f]?[0-9a-f]):[0-9a-f]+$")
    if(host MATCHES "(^|[.])localhost[.]?$|^localhost[46]?[.]localdomain[46]?[.]?$|^ip6-(localhost|loopback)[.]?$|^(127|0)[.]|^[0:]*:0*1?$"
        OR host MATCHES "${mapped_ipv4}")
        set(${result} TRUE PARENT_SCOPE)
    endif()
endfunction()

if(KORVALE_PACKAGE)
    check_own_machine("${SUBMISSION_HOST}" is_own_machine)
    if(is_own_machine OR SUBMISSION_HOST STREQUAL "")
        message(FATAL_ERROR
            "A package needs to know where its users' reports go, and SUBMISSION_HOST is \"${SUBMISSION_HOST}\". Give the "
            "host of your submission endpoint, such as -DSUBMISSION_HOST=crash.example.org.")
    endif()
endif()

check_host_name("${SUBMISSION_HOST}" is_name)
check_ipv4_address("${SUBMISSION_HOST}" is_ipv4)
check_ipv6_address("${SUBMISSION_HOST}" is_ipv6)
if(NOT is_name AND NOT is_ipv4 AND NOT is_ipv6)
    message(FATAL_ERROR
        "SUBMISSION_HOST is \"${SUBMISSION_HOST}\"; it takes a bare host name or address such as "
        "crash.example.org, with no scheme, port, path or space.")
endif()
