// CollectionsEx.so is made whole from the wks_collections archive.
