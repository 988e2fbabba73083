# The commands a user types, run as written: the README's main command in a
# fresh clone of the repository, the tool's README examples and the examples
# of its messages (docs/TOOL_MESSAGES.md).
# Host builds without sanitizers only (the commands build and run Release).
if(CMAKE_CROSSCOMPILING OR PREVIEWBOKEH_SANITIZE)
  return()
endif()
# Debian's interpreter, which has the Debian Python packages the checks use.
find_program(PBTOOL_SYSTEM_PYTHON python3 PATHS /usr/bin NO_DEFAULT_PATH)
if(NOT PBTOOL_SYSTEM_PYTHON)
  message(STATUS "README command tests skipped: /usr/bin/python3 not found")
  return()
endif()

add_test(NAME tool.fresh_clone_demo
  COMMAND ${CMAKE_CURRENT_LIST_DIR}/fresh_clone_demo.sh ${PROJECT_SOURCE_DIR}
          ${CMAKE_BINARY_DIR}/fresh_clone_demo)
set_tests_properties(tool.fresh_clone_demo PROPERTIES
  LABELS "tool;slow" TIMEOUT 900 SKIP_RETURN_CODE 77 RUN_SERIAL TRUE)


add_test(NAME tool.readme_examples
  COMMAND ${PBTOOL_SYSTEM_PYTHON} ${CMAKE_CURRENT_LIST_DIR}/readme_examples.py
          ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/docs/TOOL_MESSAGES.md
          $<TARGET_FILE_DIR:previewbokeh_cli> ${CMAKE_BINARY_DIR}/readme_examples)
set_tests_properties(tool.readme_examples PROPERTIES LABELS tool TIMEOUT 300)
