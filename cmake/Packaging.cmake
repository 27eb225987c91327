# packaging
