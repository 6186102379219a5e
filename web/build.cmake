# cmake -DNPM= -DNODE= -DCONSOLE= -DSTAMP= -P build.cmake: builds the console in the folder of its sources, if its packages can
# be had. Errors in the sources are errors of the build.
set(failed 0)
if(package-lock.json IS_NEWER_THAN node_modules/.package-lock.json)  # also when that does not exist
    execute_process(COMMAND ${NPM} ci --ignore-scripts --prefer-offline --no-audit --no-fund --fetch-retries=0 --fetch-timeout=20000
        RESULT_VARIABLE failed OUTPUT_VARIABLE text ERROR_VARIABLE text)
endif()
if(failed)
    string(REGEX MATCH "npm error [^\n]*" reason "${text}")
    message(NOTICE "The console is not built, because npm could not get its packages (${reason}); the next build tries again")
    return()
endif()
file(TOUCH node_modules/.package-lock.json)
execute_process(COMMAND ${NPM} run --silent check COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${NODE} build.mjs ${CONSOLE} COMMAND_ERROR_IS_FATAL ANY)
file(TOUCH ${STAMP})
