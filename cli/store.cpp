// nal store
#include "cli/commands.h"
#include "cli/interrupt.h"
#include "cli/program.h"
#include "cli/stores.h"

namespace cli {
namespace {

Json ReportJson(const std::string& path, const NALStoreReport& report) {
    Json findings = Json::array();
    for (const CTOOString& finding : report.findings) findings.push_back(finding.str());
    return {{"store", path},         {"certificates", report.certificates}, {"crls", report.crls}, {"properties", report.properties},
            {"damaged", report.damaged}, {"findings", findings}};
}

struct Check {
    StoreOption store;
    std::string path;

    void Define(Options& o) {
        o.Path("STORE", path, "The store's file; the user's own unless given");
        o.Note("Reads every page and record by itself, so nothing in a damaged file can mislead it. Changes nothing.");
        o.Example("nal store check", "Checks the user's store");
    }

    Outcome Run(const Globals&) {
        if (path.empty()) path = store.Path();
        NALStoreReport report;
        int status = 0;
        CTOOString text;
        const bool good = NALCheckStoreFile(path, report, &status, &text);
        if (!good && status != TOO_E_READ) throw FaultOf(status, text, path);
        Outcome outcome;
        outcome.data = ReportJson(path, report);
        outcome.data["good"] = good;
        outcome.data["verdict"] = good ? "the store is sound" : "the store is damaged: nal store salvage brings back what it still holds";
        outcome.exit = good ? kGood : kCheckFailed;
        return outcome;
    }
};

struct Salvage {
    std::string path;
    std::string target;

    void Define(Options& o) {
        o.Path("STORE", path, "The damaged store's file; it is not changed")->required();
        o.Path("NEW", target, "The new store; there must be no such file")->required();
        o.Note("Brings every certificate, CRL and property back whose pages are whole. Compare the new store with what you expect before it takes the place of the old one.");
        o.Example("nal store salvage cstore.dat rescued.dat", "Makes a new store of what a damaged one still holds");
    }

    Outcome Run(const Globals&) {
        NALStoreReport report;
        int status = 0;
        CTOOString text;
        if (!NALSalvageStoreFile(path, target, report, &status, &text)) throw FaultOf(status, text, path);
        RecordEffect("the store " + target + " was made");
        Outcome outcome;
        outcome.data = ReportJson(path, report);
        outcome.data["target"] = target;
        return outcome;
    }
};

}  // namespace

void AddStoreCommands(Program& program) {
    program.Family("store", "Certificate stores: their files", "A store is one Berkeley DB file with a lock file beside it. Certificates in it are for nal cert, CRLs for nal crl.");
    program.Command<Check>("store", "check", "Checks the file of a store");
    program.Command<Salvage>("store", "salvage", "Makes a new store of what a damaged one still holds");
}

}  // namespace cli
