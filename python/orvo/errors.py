"""The exceptions of the orvo module."""


class SceneError(Exception):
    """A scene that cannot be read, run or used as asked.

    ``file`` and ``line`` say where: the scene file or script text and its
    line for an error in a script, the calling Python file and line for a
    call that was refused. ``message`` is the message alone.
    """

    def __init__(self, message, file=None, line=0):
        self.message = message
        self.file = file
        self.line = line
        if file and line:
            text = "%s:%d: error: %s" % (file, line, message)
        elif file:
            text = "%s: error: %s" % (file, message)
        else:
            text = message
        super().__init__(text)
