// Placeholder translation unit: libwebsession.so is assembled from the archives of its parts.
