# The files the program reads beside itself: translations, the language default and the skin.
#
# tapwright_stage_program_data(<target> <dir> [ALL]) makes <target>, which copies them into <dir>,
# so that <dir> holding the program (or a test) is a complete program directory.

get_target_property(tapwright_qmake Qt5::qmake IMPORTED_LOCATION)
execute_process(
    COMMAND ${tapwright_qmake} -query QT_INSTALL_TRANSLATIONS
    OUTPUT_VARIABLE TAPWRIGHT_QT_TRANSLATIONS_DIR
    OUTPUT_STRIP_TRAILING_WHITESPACE
    RESULT_VARIABLE qmake_result)
if(NOT qmake_result EQUAL 0 OR NOT IS_DIRECTORY "${TAPWRIGHT_QT_TRANSLATIONS_DIR}")
    set(TAPWRIGHT_QT_TRANSLATIONS_DIR /usr/share/qt5/translations)
endif()

# qt_zh_CN.qm only names these catalogues; it loads nothing unless all of them lie beside it.
set(TAPWRIGHT_QT_CHINESE_CATALOGUES qt_zh_CN qtbase_zh_CN qtscript_zh_CN qtmultimedia_zh_CN qtxmlpatterns_zh_CN)
foreach(catalogue ${TAPWRIGHT_QT_CHINESE_CATALOGUES})
    if(NOT EXISTS ${TAPWRIGHT_QT_TRANSLATIONS_DIR}/${catalogue}.qm)
        message(FATAL_ERROR "${catalogue}.qm not found in ${TAPWRIGHT_QT_TRANSLATIONS_DIR} (Debian package qttranslations5-l10n)")
    endif()
endforeach()

function(tapwright_stage_program_data target dir)
    cmake_parse_arguments(STAGE "ALL" "" "" ${ARGN})
    set(all)
    if(STAGE_ALL)
        set(all ALL)
    endif()
    set(pairs
        ${TAPWRIGHT_QM_DIR}/quillon_zh.qm Language/chinese/quillon_zh.qm
        ${TAPWRIGHT_QM_DIR}/qt_uk.qm Language/english/qt_uk.qm
        ${CMAKE_SOURCE_DIR}/conf/language.ini Conf/language.ini)
    foreach(catalogue ${TAPWRIGHT_QT_CHINESE_CATALOGUES})
        list(APPEND pairs ${TAPWRIGHT_QT_TRANSLATIONS_DIR}/${catalogue}.qm Language/chinese/${catalogue}.qm)
    endforeach()
    file(GLOB_RECURSE skin_files CONFIGURE_DEPENDS RELATIVE ${CMAKE_SOURCE_DIR}/skins ${CMAKE_SOURCE_DIR}/skins/*)
    foreach(skin_file ${skin_files})
        list(APPEND pairs ${CMAKE_SOURCE_DIR}/skins/${skin_file} Skins/${skin_file})
    endforeach()

    set(outputs)
    while(pairs)
        list(POP_FRONT pairs source destination)
        get_filename_component(destination_dir ${dir}/${destination} DIRECTORY)
        add_custom_command(
            OUTPUT ${dir}/${destination}
            COMMAND ${CMAKE_COMMAND} -E make_directory ${destination_dir}
            COMMAND ${CMAKE_COMMAND} -E copy_if_different ${source} ${dir}/${destination}
            DEPENDS ${source}
            VERBATIM)
        list(APPEND outputs ${dir}/${destination})
    endwhile()
    add_custom_target(${target} ${all} DEPENDS ${outputs})
    add_dependencies(${target} tapwright_translations)
endfunction()

tapwright_stage_program_data(tapwright_program_data ${TAPWRIGHT_BIN_DIR} ALL)
if(TARGET tapwright)
    add_dependencies(tapwright tapwright_program_data)
endif()
