// The viewer's HTTP routes on a ViewSession: the page, the pictures, /info.
#ifndef PREVIEWBOKEH_TOOL_VIEW_SERVER_H_
#define PREVIEWBOKEH_TOOL_VIEW_SERVER_H_

#include <httplib.h>

#include "view_session.h"

namespace pbtool {

// Installs GET /, /render, /weights, /input, /disparity, /info; everything
// else answers 404. Errors answer with a JSON body {"error": message} (and
// "parameter" when one is at fault); nothing escapes a handler.
void InstallViewRoutes(httplib::Server *server, ViewSession *session);

}  // namespace pbtool

#endif  // PREVIEWBOKEH_TOOL_VIEW_SERVER_H_
