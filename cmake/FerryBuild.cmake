# What every target of the tree shares: language, warnings, where things are put.
#
# The build tree mirrors an installation (bin, lib, share/ferryjni), so `ferry` finds its libraries
# and jars in the same way in both.

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 99)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

if(NOT CMAKE_BUILD_TYPE)
    set(CMAKE_BUILD_TYPE
        RelWithDebInfo
        CACHE STRING "Kind of build" FORCE)
endif()

set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib")
set(FERRY_JAR_DIR "${CMAKE_BINARY_DIR}/share/ferryjni/java")
set(FERRY_JAR_INSTALL_DIR "${CMAKE_INSTALL_DATADIR}/ferryjni/java")
set(FERRY_ADAPTER_DIR "${CMAKE_BINARY_DIR}/share/ferryjni/adapters")
set(FERRY_ADAPTER_INSTALL_DIR "${CMAKE_INSTALL_DATADIR}/ferryjni/adapters")
set(CMAKE_BUILD_WITH_INSTALL_RPATH ON)
set(CMAKE_INSTALL_RPATH "$ORIGIN/../lib:$ORIGIN")

# Linked by every C and C++ target of ours.
add_library(ferry_build INTERFACE)
target_compile_options(
    ferry_build
    INTERFACE -Wall
              -Wextra
              -Wpedantic
              -Wshadow
              -Wconversion
              -Wundef
              -Wformat=2
              -Werror
              $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast>
              $<$<AND:$<COMPILE_LANGUAGE:CXX>,$<CXX_COMPILER_ID:GNU>>:-Wmissing-declarations>)

# ferry_jar(NAME SOURCE_ROOT <dir> [CLASSPATH <jar>...] [MANIFEST_CLASS_PATH <entry>...])
#
# Compiles every .java file below SOURCE_ROOT into NAME.jar in FERRY_JAR_DIR, as target NAME.
# Entries of MANIFEST_CLASS_PATH go into the jar's manifest, so that a class path of that jar alone
# finds what it needs.
function(ferry_jar name)
    cmake_parse_arguments(ARG "" "SOURCE_ROOT" "CLASSPATH;MANIFEST_CLASS_PATH" ${ARGN})
    file(GLOB_RECURSE sources CONFIGURE_DEPENDS "${ARG_SOURCE_ROOT}/*.java")
    set(classes "${CMAKE_CURRENT_BINARY_DIR}/${name}.classes")
    set(jar "${FERRY_JAR_DIR}/${name}.jar")
    set(manifest "${CMAKE_CURRENT_BINARY_DIR}/${name}.mf")
    set(manifest_text "Implementation-Title: ${name}\nImplementation-Version: ${PROJECT_VERSION}\n")
    if(ARG_MANIFEST_CLASS_PATH)
        # A manifest line holds 72 bytes; one entry a line, continued by a leading blank.
        list(JOIN ARG_MANIFEST_CLASS_PATH " \n  " entries)
        string(APPEND manifest_text "Class-Path: ${entries}\n")
    endif()
    file(WRITE "${manifest}" "${manifest_text}")
    list(JOIN ARG_CLASSPATH ":" classpath)
    set(classpath_option)
    if(classpath)
        set(classpath_option -classpath "${classpath}")
    endif()
    # Texts are put together by plain code: what a VM makes for it at run time delays every start.
    string(REPLACE ";" "\n" source_lines "${sources}")
    file(WRITE "${CMAKE_CURRENT_BINARY_DIR}/${name}.sources" "${source_lines}\n")
    add_custom_command(
        OUTPUT "${jar}"
        COMMAND "${CMAKE_COMMAND}" -E rm -rf "${classes}"
        COMMAND "${CMAKE_COMMAND}" -E make_directory "${classes}" "${FERRY_JAR_DIR}"
        COMMAND
            "${Java_JAVAC_EXECUTABLE}" --release 17 -encoding UTF-8 -Xlint:all -Werror
            -XDstringConcat=inline ${classpath_option} -d "${classes}"
            "@${CMAKE_CURRENT_BINARY_DIR}/${name}.sources"
        COMMAND "${Java_JAR_EXECUTABLE}" --create --file "${jar}" --manifest "${manifest}"
                --date=2020-01-01T00:00:00Z -C "${classes}" .
        DEPENDS ${sources} ${ARG_CLASSPATH}
        COMMENT "Building ${name}.jar"
        VERBATIM)
    add_custom_target(${name} ALL DEPENDS "${jar}")
    set_target_properties(${name} PROPERTIES JAR_FILE "${jar}")
endfunction()

# ferry_adapter_jar(NAME CLASS <class> SOURCE_ROOT <dir> [LIBRARIES <jar>...])
#
# An adapter of the installation: its jar lies in a folder that has the name of its class, where
# `ferry` finds it and no other adapter sees it. Its libraries are Debian's and stay where Debian
# puts them: the jar's manifest names them, and the shared jars, so that a class path of this jar
# alone works everywhere else.
function(ferry_adapter_jar name)
    cmake_parse_arguments(ARG "" "CLASS;SOURCE_ROOT" "LIBRARIES" ${ARGN})
    set(shared ferrion-adapter qdds ferrion-kit)
    list(TRANSFORM shared REPLACE "(.+)" "${FERRY_JAR_DIR}/\\1.jar" OUTPUT_VARIABLE shared_jars)
    list(TRANSFORM shared REPLACE "(.+)" "../../java/\\1.jar" OUTPUT_VARIABLE manifest)
    list(TRANSFORM ARG_LIBRARIES PREPEND "file:" OUTPUT_VARIABLE libraries)
    set(FERRY_JAR_DIR "${FERRY_ADAPTER_DIR}/${ARG_CLASS}")
    ferry_jar(
        ${name}
        SOURCE_ROOT "${ARG_SOURCE_ROOT}"
        CLASSPATH ${shared_jars} ${ARG_LIBRARIES}
        MANIFEST_CLASS_PATH ${manifest} ${libraries})
    add_dependencies(${name} ${shared})
    install(FILES "${FERRY_JAR_DIR}/${name}.jar"
            DESTINATION "${FERRY_ADAPTER_INSTALL_DIR}/${ARG_CLASS}")
endfunction()
