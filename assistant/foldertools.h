#ifndef ORVANE_FOLDERTOOLS_H
#define ORVANE_FOLDERTOOLS_H

#include "folder.h"

#include <qtagent/agenttool.h>

#include <QVector>

/// Returns the tools list_folder and read_file, which run unasked, and write_file, which needs the user's
/// approval. They use @p folder and nothing outside of it.
QVector<MireloQtLib::QtAgent::AgentTool *> createFolderTools(const Folder &folder, QObject *parent);

/// Tells the user what write_file would do to @p folder: which file, with all links looked up, it would
/// replace or make, or that it would fail.
QString explainWriting(const Folder &folder, const QJsonObject &arguments);

#endif
