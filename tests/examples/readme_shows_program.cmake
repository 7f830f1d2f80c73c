# The README's program is the one that is built and run.
file(READ ${README} readme)
file(READ ${PROGRAM} program)
string(FIND "${readme}" "```cpp\n${program}```\n" place)
if(place EQUAL -1)
    message(FATAL_ERROR "README.md does not show ${PROGRAM} as it is")
endif()
