# The host that reports are posted to, checked here so that a mistake ends the configuration and not a user's report.
set(SUBMISSION_HOST "localhost" CACHE STRING
    "Host of the submission endpoint: a bare name or address, without scheme, port or path")

# A name of letters, digits, hyphens and dots (RFC 1123 section 2.1), an IPv4 address, or an IPv6 address without
# brackets (RFC 4291 section 2.2).
set(label "[A-Za-z0-9]([A-Za-z0-9-]*[A-Za-z0-9])?")
set(host_is_name FALSE)
if(SUBMISSION_HOST MATCHES "^${label}([.]${label})*[.]?$")
    set(host_is_name TRUE)
endif()
set(host_is_ipv6 FALSE)
if(SUBMISSION_HOST MATCHES "^[0-9A-Fa-f:]*:[0-9A-Fa-f:]*:[0-9A-Fa-f:.]*$")
    set(host_is_ipv6 TRUE)
endif()
if(NOT host_is_name AND NOT host_is_ipv6)
    message(FATAL_ERROR
        "SUBMISSION_HOST is \"${SUBMISSION_HOST}\"; it takes a bare host name or address such as "
        "crash.example.org, with no scheme, port, path or blank.")
endif()
