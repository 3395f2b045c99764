// The report page: a table with filter and sort, and a time line a port. One file, nothing from outside; everything that
// comes from the log goes in as data and is shown as text.
#include "tools/lmctl/render/render.h"

namespace lmctl {
namespace {

constexpr char kHead[] = R"html(<!doctype html>
<html lang="en"><head><meta charset="utf-8"><meta name="viewport" content="width=device-width">
<title>Print jobs of the Kelvane language monitor</title>
<style>
:root{color-scheme:light dark;--bg:#fff;--fg:#1b1b1b;--line:#ccc;--head:#f0f0f0;--good:#1a7f37;--bad:#c62828;--mid:#8a6d00;--bar:#4a7fc1}
@media(prefers-color-scheme:dark){:root{--bg:#181a1b;--fg:#e6e6e6;--line:#444;--head:#26292b;--good:#5fd07a;--bad:#ff8a80;--mid:#e0c060;--bar:#6fa3e0}}
body{margin:1rem;background:var(--bg);color:var(--fg);font:14px/1.4 system-ui,sans-serif}
h1{font-size:1.3rem;margin:0}h2{font-size:1.05rem}
input{font:inherit;padding:.3rem;width:22rem;max-width:90%;background:var(--bg);color:var(--fg);border:1px solid var(--line)}
#scroll{height:28rem;overflow:auto;border:1px solid var(--line)}
table{border-collapse:collapse;width:100%}
th{position:sticky;top:0;background:var(--head);text-align:left}
th button{all:unset;cursor:pointer;font-weight:600;padding:.3rem .5rem}th button:focus-visible,#scroll:focus-visible{outline:2px solid var(--bar)}
td{padding:0 .5rem;height:24px;white-space:nowrap;border-top:1px solid var(--line)}
.good{color:var(--good)}.bad{color:var(--bad)}.mid{color:var(--mid)}
canvas{width:100%;height:34px;display:block;border:1px solid var(--line)}
.lane{margin:.4rem 0}.num{text-align:right}
</style></head><body>
<h1>Print jobs</h1>
)html";

constexpr char kTail[] = R"html(
<p><label>Filter <input id="filter" type="search" placeholder="queue, port, outcome, number &hellip;"></label> <span id="count" role="status"></span></p>
<div id="scroll" tabindex="0" aria-label="jobs"><table><thead><tr id="head"></tr></thead><tbody id="rows"></tbody></table></div>
<h2>Time line</h2>
<p>One lane a port. Bars are jobs; <span class="mid">waits</span>, <span class="bad">reprints and cancels</span> are marked.</p>
<div id="lanes"></div>
<script>
"use strict";
const jobs=JSON.parse(document.getElementById("jobs").textContent);
const columns=[["start",j=>j.s],["queue",j=>j.q],["job",j=>j.j],["port",j=>j.p],["path",j=>j.w],["bytes",j=>j.b],["seconds",j=>j.e==null?null:(j.e-j.s)/1000],["outcome",j=>j.o],["log",j=>j.l]];
const show=[j=>j.t,j=>j.q,j=>j.j,j=>j.p||"?",j=>j.w||"?",j=>j.b==null?"?":j.b,j=>j.e==null?"-":((j.e-j.s)/1000).toFixed(1),j=>j.o,j=>j.l];
const head=document.getElementById("head"),body=document.getElementById("rows"),box=document.getElementById("scroll");
const filter=document.getElementById("filter"),count=document.getElementById("count");
let list=jobs,by=0,down=false;
for(const j of jobs)j.x=(j.t+" "+j.q+" "+j.j+" "+(j.p||"")+" "+(j.w||"")+" "+j.o+" "+j.l).toLowerCase();
columns.forEach(([name],n)=>{const th=document.createElement("th"),b=document.createElement("button");
 b.textContent=name;th.scope="col";b.onclick=()=>{down=by===n?!down:false;by=n;sort();};th.append(b);head.append(th);});
function compare(a,b){const x=columns[by][1](a),y=columns[by][1](b);
 if(x==null||y==null)return (x==null)-(y==null);return x<y?-1:x>y?1:a.n-b.n;}
function sort(){list=list.slice().sort((a,b)=>down?compare(b,a):compare(a,b));
 [...head.children].forEach((th,n)=>th.setAttribute("aria-sort",n===by?(down?"descending":"ascending"):"none"));draw();}
function draw(){ // only the rows in sight exist
 const h=25,from=Math.max(0,Math.floor(box.scrollTop/h)-20),to=Math.min(list.length,from+Math.ceil(box.clientHeight/h)+40);
 const gap=n=>{const tr=document.createElement("tr"),td=document.createElement("td");td.colSpan=columns.length;td.style.height=n*h+"px";td.style.border=0;td.style.padding=0;tr.append(td);return tr;};
 const rows=[];if(from)rows.push(gap(from));
 for(let n=from;n<to;n++){const j=list[n],tr=document.createElement("tr");
  show.forEach((f,c)=>{const td=document.createElement("td");td.textContent=f(j);if(c===7)td.className=j.c;if(c===5||c===6||c===2)td.className="num";tr.append(td);});rows.push(tr);}
 if(to<list.length)rows.push(gap(list.length-to));
 body.replaceChildren(...rows);count.textContent=list.length+" of "+jobs.length+" jobs";}
filter.oninput=()=>{const words=filter.value.toLowerCase().split(/\s+/).filter(Boolean);
 list=jobs.filter(j=>words.every(w=>j.x.includes(w)));box.scrollTop=0;sort();};
box.onscroll=draw;
const lanes=document.getElementById("lanes"),style=getComputedStyle(document.documentElement);
function lane(port,mine,first,last){const div=document.createElement("div"),p=document.createElement("div"),cv=document.createElement("canvas");
 div.className="lane";p.textContent=(port||"port not logged")+": "+mine.length+" jobs";cv.tabIndex=0;cv.setAttribute("role","img");
 const bad=mine.filter(j=>j.c==="bad").length;cv.setAttribute("aria-label",port+": "+mine.length+" jobs, "+bad+" refused or failed");
 div.append(p,cv);lanes.append(div);const w=cv.width=cv.clientWidth*devicePixelRatio||1000,h=cv.height=34*devicePixelRatio,g=cv.getContext("2d");
 const x=t=>(t-first)/(Math.max(1,last-first))*(w-4)+2,colour=c=>style.getPropertyValue(c).trim();
 for(const j of mine){const e=j.e==null?j.z:j.e;g.fillStyle=j.c==="good"?colour("--bar"):j.c==="bad"?colour("--bad"):colour("--mid");
  g.fillRect(x(j.s),h*.25,Math.max(2,x(e)-x(j.s)),h*.5);
  for(const [k,a,b] of j.f){g.fillStyle=colour(k===0?"--mid":"--bad");
   if(k===2)g.fillRect(x(a)-1,0,3,h);else g.fillRect(x(a),k===0?h*.8:0,Math.max(2,x(b)-x(a)),h*.18);}}
 cv.onmousemove=ev=>{const t=first+(ev.offsetX*devicePixelRatio-2)/(w-4)*(last-first);
  const j=mine.find(j=>j.s<=t&&t<=(j.e==null?j.z:j.e));cv.title=j?j.t+" job "+j.j+" "+j.o:"";};}
const ports=new Map();let first=Infinity,last=-Infinity;
for(const j of jobs){if(!ports.has(j.p))ports.set(j.p,[]);ports.get(j.p).push(j);first=Math.min(first,j.s);last=Math.max(last,j.e==null?j.z:j.e);}
for(const [port,mine] of ports)lane(port,mine,first,last);
sort();
document.body.dataset.ready="1";
</script></body></html>
)html";

std::string Escaped(const std::string& strText) {
  std::string str;
  for (const char c : strText) {
    switch (c) {
      case '<': str += "&lt;"; break;
      case '>': str += "&gt;"; break;
      case '&': str += "&amp;"; break;
      case '"': str += "&quot;"; break;
      default: str += c;
    }
  }
  return str;
}

// A JSON text inside a script element: nothing in it may end the element.
std::string Quoted(const std::string& strText) {
  std::string str = "\"";
  for (const char c : strText) {
    if (c == '"' || c == '\\') str += '\\';
    if (c == '<') {
      str += "\\u003c";
    } else {
      str += c;
    }
  }
  return str + "\"";
}

}  // namespace

void HtmlRenderer::Begin(const std::string& strLogs) {
  std::fputs(kHead, m_pOut);
  std::fprintf(m_pOut, "<p id=\"about\">From %s.</p>\n<script id=\"jobs\" type=\"application/json\">[",
               Escaped(ToUtf8(strLogs)).c_str());
}

void HtmlRenderer::Job(const Story& story) {
  const char* pszClass = story.outcome == Outcome::Confirmed || story.outcome == Outcome::Printed ? "good"
                         : story.outcome == Outcome::Refused || story.outcome == Outcome::Failed  ? "bad"
                                                                                                  : "mid";
  std::string strPhases;
  for (const Phase& phase : story.phases) {
    if (!strPhases.empty()) strPhases += ',';
    char sz[64];
    std::snprintf(sz, sizeof sz, "[%d,%lld,%lld]", static_cast<int>(phase.kind), static_cast<long long>(phase.llFrom),
                  static_cast<long long>(phase.llTo));
    strPhases += sz;
  }
  const std::string strBytes = story.nBytes == kUnknown ? "null" : std::to_string(story.nBytes);
  const std::string strEnded = story.llEnded == 0 ? "null" : std::to_string(story.llEnded);
  const char* pszPath = story.path == Path::Device        ? "\"device\""
                        : story.path == Path::PortMonitor ? "\"portMonitor\""
                                                          : "null";
  static_assert(sizeof(LocalMs) == sizeof(long long));
  std::fprintf(
      m_pOut, "%s\n{\"n\":%lld,\"t\":%s,\"s\":%lld,\"e\":%s,\"z\":%lld,\"q\":%s,\"j\":%lld,\"p\":%s,\"w\":%s,\"b\":%s,",
      m_bFirst ? "" : ",", static_cast<long long>(story.first.nLine), Quoted(ShortTime(story.llStarted)).c_str(),
      static_cast<long long>(story.llStarted), strEnded.c_str(), static_cast<long long>(story.llLast),
      Quoted(ToUtf8(story.strQueue)).c_str(), static_cast<long long>(story.nJob), Quoted(ToUtf8(story.strPort)).c_str(),
      pszPath, strBytes.c_str());
  std::fprintf(m_pOut, "\"o\":%s,\"c\":\"%s\",\"l\":%s,\"f\":[%s]}", Quoted(OutcomeText(story)).c_str(), pszClass,
               Quoted(ToUtf8(m_fileName(story.first.nFile)) + ":" + std::to_string(story.first.nLine)).c_str(),
               strPhases.c_str());
  m_bFirst = false;
}

void HtmlRenderer::End() {
  std::fputs("\n]</script>", m_pOut);
  std::fputs(kTail, m_pOut);
}

}  // namespace lmctl
