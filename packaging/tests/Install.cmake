# Installs the build in BUILD into the directory "first" below STAGE, after removing everything else there.
file(REMOVE_RECURSE ${STAGE})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${STAGE}/first
  COMMAND_ERROR_IS_FATAL ANY)
