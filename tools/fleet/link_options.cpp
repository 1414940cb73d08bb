// SPDX-License-Identifier: GPL-2.0-only
#include "fleet/link_options.h"

#include <CLI/CLI.hpp>

namespace fleet {

void AddLinkOptions(CLI::App& app, SLinkOptions& options) {
  app.add_option("--servers", options.servers,
                 "addresses with commas between them, each nats://HOST:PORT or tls://HOST:PORT")
      ->capture_default_str();
  app.add_flag("--tls", options.usesTls, "TLS to every server");
  app.add_flag("--plain", options.allowsPlain, "no TLS to servers on other computers");
  app.add_option("--ca", options.ca, "file with the certificates that are trusted")->check(CLI::ExistingFile);
  auto* key = app.add_option("--key", options.key, "file with the key of the certificate")->check(CLI::ExistingFile);
  app.add_option("--certificate", options.certificate, "file with this program's certificate")
      ->check(CLI::ExistingFile)
      ->needs(key);
  app.add_option("--credentials", options.credentials, "file with credentials")->check(CLI::ExistingFile);
  auto* user = app.add_option("--user", options.user, "name of the user");
  app.add_option("--password-file", options.passwordFile, "file with the user's password in its first line")
      ->check(CLI::ExistingFile)
      ->needs(user);
  app.add_option("--buffer", options.kiloBytesKept, "kilobytes kept of what is published while no server is there")
      ->check(CLI::Range(1, 1000000))
      ->capture_default_str();
}

}  // namespace fleet
