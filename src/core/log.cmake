target_sources(velour_static PRIVATE
  log.cpp
  InterfaceLogger.cpp
)
