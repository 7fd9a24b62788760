# tapwright_add_test(<name> SOURCES ... LIBS ... LABEL <subsystem> [slow] [DISPLAY] [TIMEOUT <s>])
#
# Every test runs through tests/support/run-test.sh, which gives it a scratch HOME and XDG
# directories and, with DISPLAY, an Xvfb server of its own; without DISPLAY Qt runs offscreen.
# The label slow keeps a test out of scripts/test --quick.
function(tapwright_add_test name)
    cmake_parse_arguments(T "DISPLAY" "TIMEOUT" "LABEL;SOURCES;LIBS" ${ARGN})
    add_executable(${name} ${T_SOURCES})
    target_link_libraries(${name} PRIVATE Qt5::Test tapwright_test_support ${T_LIBS})
    tapwright_strict_warnings(${name})
    set(mode --offscreen)
    if(T_DISPLAY)
        set(mode --display)
    endif()
    add_test(NAME ${name} COMMAND ${CMAKE_SOURCE_DIR}/tests/support/run-test.sh ${mode} $<TARGET_FILE:${name}>)
    if(NOT T_TIMEOUT)
        set(T_TIMEOUT 300)
    endif()
    set_tests_properties(${name} PROPERTIES LABELS "${T_LABEL}" TIMEOUT ${T_TIMEOUT})
endfunction()
