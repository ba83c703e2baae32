// libvelour.so's exports are defined beside their code and marked VELOUR_EXPORT.
