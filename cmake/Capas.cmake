# Each folder under src/ is one layer's target. All of them share one
# include root, and static libraries link even when one calls a layer above
# it, as long as the program links that layer too; so the build checks the
# includes: every "folder/Header.h" a folder includes must be of its own
# folder or of one its target links, directly or not.

# The folder whose includes the build checks against the target's links.
function(presupuestos_capa objetivo carpeta)
  set_property(TARGET ${objetivo} PROPERTY PRESUPUESTOS_CARPETA ${carpeta})
  set_property(GLOBAL APPEND PROPERTY PRESUPUESTOS_CAPAS ${objetivo})
endfunction()

# After every target has its folder: writes what each folder may include,
# and checks it on every build (target presupuestos_capas).
function(presupuestos_comprobar_capas)
  get_property(capas GLOBAL PROPERTY PRESUPUESTOS_CAPAS)
  set(texto "")
  set(carpetas "")
  set(vigiladas "")
  foreach(objetivo IN LISTS capas)
    get_target_property(carpeta ${objetivo} PRESUPUESTOS_CARPETA)
    list(APPEND carpetas ${carpeta})
    set(alcanzables "")
    set(pendientes ${objetivo})
    set(vistos "")
    while(pendientes)
      list(POP_FRONT pendientes t)
      if(NOT TARGET ${t} OR t IN_LIST vistos)
        continue()
      endif()
      list(APPEND vistos ${t})
      get_target_property(c ${t} PRESUPUESTOS_CARPETA)
      if(NOT c)
        continue()
      endif()
      list(APPEND alcanzables ${c})
      get_target_property(enlazadas ${t} LINK_LIBRARIES)
      if(enlazadas)
        list(APPEND pendientes ${enlazadas})
      endif()
    endwhile()
    string(MAKE_C_IDENTIFIER "${carpeta}" id)
    string(APPEND texto "set(CAPA_${id} \"${alcanzables}\")\n")
    file(GLOB fuentes CONFIGURE_DEPENDS ${carpeta}/*.h ${carpeta}/*.cpp)
    list(APPEND vigiladas ${fuentes})
  endforeach()
  string(APPEND texto "set(PRESUPUESTOS_CARPETAS \"${carpetas}\")\n")
  file(CONFIGURE OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/capas.cmake CONTENT "${texto}" @ONLY)
  add_custom_command(OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/capas.sello
    COMMAND ${CMAKE_COMMAND} -DCAPAS=${CMAKE_CURRENT_BINARY_DIR}/capas.cmake -DRAIZ=${CMAKE_CURRENT_SOURCE_DIR}
            -DSELLO=${CMAKE_CURRENT_BINARY_DIR}/capas.sello -P ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/ComprobarCapas.cmake
    DEPENDS ${vigiladas} ${CMAKE_CURRENT_BINARY_DIR}/capas.cmake ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/ComprobarCapas.cmake
    COMMENT "Checking that no layer includes a header of a layer above it"
    VERBATIM)
  add_custom_target(presupuestos_capas ALL DEPENDS ${CMAKE_CURRENT_BINARY_DIR}/capas.sello)
endfunction()
