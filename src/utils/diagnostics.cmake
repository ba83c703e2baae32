target_sources(velour_static PRIVATE
  diagnostics/Format.cpp
  diagnostics/Process.cpp
  diagnostics/CallStack.cpp
  diagnostics/LoopTimer.cpp
)
