#include "view_server.h"

#include <exception>
#include <functional>
#include <string>

#include <nlohmann/json.hpp>

#include "errors.h"
#include "view_page.h"

namespace pbtool {
namespace {

void SendError(httplib::Response &res, int status, const std::string &message, const std::string &parameter = "") {
  nlohmann::json body = {{"error", message}};
  if (!parameter.empty()) body["parameter"] = parameter;
  res.status = status;
  res.set_content(body.dump(), "application/json");
}

// Runs a handler, turning every failure into a JSON answer.
void Guarded(httplib::Response &res, const std::function<void()> &handler) {
  try {
    handler();
  } catch (const RequestError &e) {
    SendError(res, e.status(), e.what(), e.parameter());
  } catch (const LibraryError &e) {
    SendError(res, 500, std::string("library: ") + e.what());
  } catch (const std::exception &e) {
    SendError(res, 500, e.what());
  } catch (...) {
    SendError(res, 500, "unknown failure");
  }
}

void Send(httplib::Response &res, const Reply &reply) {
  for (const auto &header : reply.headers) res.set_header(header.first.c_str(), header.second);
  res.set_header("Cache-Control", "no-store");
  res.set_content(reply.body, reply.content_type.c_str());
}

}  // namespace

void InstallViewRoutes(httplib::Server *server, ViewSession *session) {
  server->Get("/", [](const httplib::Request &, httplib::Response &res) {
    res.set_content(reinterpret_cast<const char *>(kViewPage), sizeof kViewPage, "text/html; charset=utf-8");
  });
  const struct {
    const char *path;
    Reply (ViewSession::*method)(const Params &);
  } pictures[] = {{"/render", &ViewSession::Render},
                  {"/weights", &ViewSession::Weights},
                  {"/input", &ViewSession::Input},
                  {"/disparity", &ViewSession::Disparity}};
  for (const auto &picture : pictures) {
    const auto method = picture.method;
    server->Get(picture.path, [session, method](const httplib::Request &req, httplib::Response &res) {
      Guarded(res, [&] { Send(res, (session->*method)(req.params)); });
    });
  }
  server->Get("/info", [session](const httplib::Request &, httplib::Response &res) {
    Guarded(res, [&] {
      res.set_header("Cache-Control", "no-store");
      res.set_content(session->Info().dump(), "application/json");
    });
  });
  // Unknown paths (and any other error status without a body) answer in JSON too.
  server->set_error_handler([](const httplib::Request &req, httplib::Response &res) {
    if (!res.body.empty()) return;
    if (res.status == 404) {
      SendError(res, 404, "no such path: " + req.path);
    } else {
      SendError(res, res.status, "HTTP status " + std::to_string(res.status));
    }
  });
  server->set_exception_handler([](const httplib::Request &, httplib::Response &res, std::exception_ptr) {
    SendError(res, 500, "unexpected failure");
  });
}

}  // namespace pbtool
