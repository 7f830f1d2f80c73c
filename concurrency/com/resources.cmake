# The resources of the DLL: the type library and the message table are compiled from their descriptions, the version is
# the project's.
set(com_dir ${CMAKE_CURRENT_SOURCE_DIR}/com)
set(com_out ${CMAKE_CURRENT_BINARY_DIR}/com)
file(MAKE_DIRECTORY ${com_out})

if(MSVC)
    # NOT VERIFIED: prepared, never built. Both are in the Windows SDK, on the path of a developer prompt.
    find_program(ZARVO_MIDL midl REQUIRED)
    find_program(ZARVO_MC mc REQUIRED)
    # Its headers and stubs too go to the output folder, not into the sources or wherever the build tool stands.
    add_custom_command(OUTPUT ${com_out}/future_lib.tlb
        COMMAND ${ZARVO_MIDL} /nologo /env x64 /out ${com_out} /tlb future_lib.tlb ${com_dir}/future_lib.idl
        DEPENDS ${com_dir}/future_lib.idl VERBATIM
    )
    add_custom_command(OUTPUT ${com_out}/concurrency.mc.rc ${com_out}/concurrency_0409.bin
        COMMAND ${ZARVO_MC} -h ${com_out} -r ${com_out} ${com_dir}/concurrency.mc
        COMMAND ${CMAKE_COMMAND} -E rename ${com_out}/concurrency.rc ${com_out}/concurrency.mc.rc
        DEPENDS ${com_dir}/concurrency.mc VERBATIM
    )
else()
    find_program(ZARVO_WIDL NAMES x86_64-w64-mingw32-widl widl REQUIRED)
    find_program(ZARVO_WINDMC NAMES x86_64-w64-mingw32-windmc windmc REQUIRED)
    add_custom_command(OUTPUT ${com_out}/stdole2.tlb
        COMMAND ${ZARVO_WIDL} --win64 -t -I ${com_dir}/widl -o ${com_out}/stdole2.tlb ${com_dir}/widl/stdole2.idl
        DEPENDS ${com_dir}/widl/stdole2.idl ${com_dir}/widl/oaidl.idl VERBATIM
    )
    add_custom_command(OUTPUT ${com_out}/future_lib.tlb
        COMMAND ${ZARVO_WIDL} --win64 -t -I ${com_dir}/widl -L ${com_out} -o ${com_out}/future_lib.tlb
            ${com_dir}/future_lib.idl
        DEPENDS ${com_dir}/future_lib.idl ${com_dir}/widl/oaidl.idl ${com_out}/stdole2.tlb VERBATIM
    )
    add_custom_command(OUTPUT ${com_out}/concurrency.mc.rc ${com_out}/concurrency_0409.bin
        COMMAND ${ZARVO_WINDMC} -h ${com_out} -r ${com_out} ${com_dir}/concurrency.mc
        COMMAND ${CMAKE_COMMAND} -E rename ${com_out}/concurrency.rc ${com_out}/concurrency.mc.rc
        DEPENDS ${com_dir}/concurrency.mc VERBATIM
    )
endif()

configure_file(com/concurrency.rc.in ${com_out}/module.rc @ONLY)
set_source_files_properties(${com_out}/module.rc PROPERTIES OBJECT_DEPENDS
    "${com_out}/future_lib.tlb;${com_out}/concurrency.mc.rc;${com_out}/concurrency_0409.bin;${com_dir}/concurrency.rgs;${com_dir}/resource_ids.h"
)
target_sources(ZarvoConcurrency PRIVATE ${com_out}/module.rc)
set_source_files_properties(${com_out}/module.rc PROPERTIES INCLUDE_DIRECTORIES "${com_dir};${com_out}")
