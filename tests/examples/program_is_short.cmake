# A program for newcomers has at most MOST lines of code: without includes, comments and empty lines.
file(READ ${PROGRAM} text)
string(REGEX REPLACE "[][;]" "x" text "${text}")  # no marks of a list
string(REGEX MATCHALL "\n *[^ \n/#]" code "\n${text}")
list(LENGTH code count)
if(count EQUAL 0 OR count GREATER MOST)
    message(FATAL_ERROR "${PROGRAM} has ${count} lines of code instead of ${MOST} at most")
endif()
