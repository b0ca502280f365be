# JUnit tests as CTest entries, one process a class: a VM loads each native library once.
find_file(
    FERRY_JUNIT_JAR junit4.jar
    PATHS /usr/share/java REQUIRED
    DOC "JUnit 4 (junit4)")
find_file(
    FERRY_HAMCREST_JAR hamcrest.jar
    PATHS /usr/share/java REQUIRED
    DOC "Hamcrest (libhamcrest-java)")

# A sanitizer's runtime has to be in the process before the VM loads our libraries.
set(FERRY_SANITIZER_ENVIRONMENT)
if(CMAKE_CXX_FLAGS MATCHES "-fsanitize=(address|thread)")
    string(SUBSTRING "${CMAKE_MATCH_1}" 0 1 initial)
    execute_process(
        COMMAND "${CMAKE_CXX_COMPILER}" -print-file-name=lib${initial}san.so
        OUTPUT_VARIABLE runtime
        OUTPUT_STRIP_TRAILING_WHITESPACE)
    set(FERRY_SANITIZER_ENVIRONMENT "LD_PRELOAD=${runtime}")
endif()

# ferry_junit_tests(NAME JARS <jar>... LIBRARY_PATH <dir> [OPTIONS_<class> <VM option>...])
#
# Compiles src/*.java of the calling folder against JARS, and adds a test NAME.<class> for every
# class whose name ends in Test. OPTIONS_<class> are VM options for that class alone.
function(ferry_junit_tests name)
    file(GLOB_RECURSE sources CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/src/*.java")
    set(tests ${sources})
    list(FILTER tests INCLUDE REGEX "Test\\.java$")
    list(TRANSFORM tests REPLACE ".*/(.*)\\.java$" "OPTIONS_\\1" OUTPUT_VARIABLE options)
    cmake_parse_arguments(ARG "" "LIBRARY_PATH" "JARS;${options}" ${ARGN})
    set(classes "${CMAKE_CURRENT_BINARY_DIR}/classes")
    set(stamp "${CMAKE_CURRENT_BINARY_DIR}/classes.stamp")
    list(JOIN ARG_JARS ":" jars)
    set(classpath "${jars}:${FERRY_JUNIT_JAR}:${FERRY_HAMCREST_JAR}")
    add_custom_command(
        OUTPUT "${stamp}"
        COMMAND "${CMAKE_COMMAND}" -E rm -rf "${classes}"
        COMMAND "${CMAKE_COMMAND}" -E make_directory "${classes}"
        COMMAND "${Java_JAVAC_EXECUTABLE}" --release 17 -encoding UTF-8 -Xlint:all -Werror
                -classpath "${classpath}" -d "${classes}" ${sources}
        COMMAND "${CMAKE_COMMAND}" -E touch "${stamp}"
        DEPENDS ${sources} ${ARG_JARS}
        COMMENT "Building the tests ${name}"
        VERBATIM)
    add_custom_target(${name} ALL DEPENDS "${stamp}")
    add_dependencies(${name} qdds ferrion-adapter ferrion-adapter-file)
    foreach(source IN LISTS tests)
        get_filename_component(test "${source}" NAME_WE)
        file(RELATIVE_PATH class "${CMAKE_CURRENT_SOURCE_DIR}/src" "${source}")
        string(REGEX REPLACE "\\.java$" "" class "${class}")
        string(REPLACE "/" "." class "${class}")
        add_test(
            NAME ${name}.${test}
            COMMAND
                "${Java_JAVA_EXECUTABLE}" -ea -Xmx256m -Dfile.encoding=UTF-8
                "-Djava.library.path=${ARG_LIBRARY_PATH}" ${ARG_OPTIONS_${test}} -classpath
                "${classes}:${classpath}" org.junit.runner.JUnitCore ${class})
        set_tests_properties(${name}.${test} PROPERTIES TIMEOUT 120 ENVIRONMENT
                                                        "${FERRY_SANITIZER_ENVIRONMENT}")
    endforeach()
endfunction()
