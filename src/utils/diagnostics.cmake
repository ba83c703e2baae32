target_sources(velour_static PRIVATE)
